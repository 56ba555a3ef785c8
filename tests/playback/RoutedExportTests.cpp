// "Render to File…" through the session: a file opened by the load road, the routing edited
// with the matrix operations, the file written to disk and read back by libsndfile; ffmpeg's
// pan filter mixes the same routing as the oracle.
#include <sndfile.h>

#include <QFileInfo>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "playback/RoutedOutputExport.h"
#include "playback/RoutingGain.h"
#include "support/JackTestServer.h"
#include "support/SessionOnJack.h"

namespace corvane::test {
namespace {

using RoutedExport = OnJackServer;

struct ReadBack {
  int channels = 0;
  int format = 0;
  int rate = 0;
  std::vector<std::vector<float>> data;
};

ReadBack readFile(const std::string& path) {
  ReadBack file;
  SF_INFO info{};
  SNDFILE* sf = sf_open(path.c_str(), SFM_READ, &info);
  if (!sf) return file;
  file.channels = info.channels;
  file.format = info.format;
  file.rate = info.samplerate;
  std::vector<float> interleaved(static_cast<std::size_t>(info.frames * info.channels));
  sf_readf_float(sf, interleaved.data(), info.frames);
  sf_close(sf);
  file.data.assign(info.channels, std::vector<float>(static_cast<std::size_t>(info.frames)));
  for (sf_count_t i = 0; i < info.frames; ++i) {
    for (int c = 0; c < info.channels; ++c) file.data[c][i] = interleaved[i * info.channels + c];
  }
  return file;
}

std::string bytesOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

std::string gainText(float gain) {
  char text[32];
  std::snprintf(text, sizeof text, "%.9g", static_cast<double>(gain));
  return text;
}

TEST_F(RoutedExport, AFiveOneFileThroughANonTrivialRoutingNullsAgainstFfmpegPan) {
  SessionOnJack session;
  const Planar surround = programme(48000.0, 6, 2.0, 29);
  const std::string input = session.folder.file("surround.wav");
  writeWav(input, surround);
  ASSERT_TRUE(session.open(input, "system"));
  Transport& transport = session.transport();

  // A downmix with a centre at -6 dB and a surround at -3 dB, a polarity flip, a louder LFE, a
  // swapped surround pair summed with a quiet partner; C, Rs and the 7.1 extras left unrouted.
  ChannelRoutings r = transport.routings();
  ASSERT_EQ(r.size(), 8u);
  ASSERT_TRUE(addRoute(r, 0, 2) && setRouteGainDB(r, 0, 2, -6.0) && addRoute(r, 0, 4) && setRouteGainDB(r, 0, 4, -3.0));
  for (int step = 0; step < 3; ++step) cycleRoutePhase(r, 1, 1);
  ASSERT_EQ(routingPhaseFor(r, 1, 1), RoutingPhase::invert);
  ASSERT_TRUE(addRoute(r, 1, 2) && setRouteGainDB(r, 1, 2, -6.0));
  ASSERT_TRUE(removeRoute(r, 2, 2));
  ASSERT_TRUE(setRouteGainDB(r, 3, 3, 6.0));
  ASSERT_TRUE(removeRoute(r, 4, 4) && addRoute(r, 4, 5) && addRoute(r, 4, 4) && setRouteGainDB(r, 4, 4, -12.0));
  ASSERT_TRUE(removeRoute(r, 5, 5));
  transport.setRoutings(r);

  std::vector<SavePanelRequest> requests;
  std::string output = session.folder.file("mixdown.wav");
  RoutedOutputExport command(*session.engine, [&](const SavePanelRequest& request) {
    requests.push_back(request);
    return std::optional<std::filesystem::path>(output);
  });
  // Four discrete channels: the question about the layout comes first. Cancel ends it there.
  session.user->answers = {2, 1, 0};
  EXPECT_FALSE(command.exportRoutedOutput());
  EXPECT_TRUE(requests.empty());
  ASSERT_EQ(session.user->seen.size(), 1u);
  const SessionAlert& question = session.user->seen[0];
  EXPECT_EQ(question.messageText, "Save as CAF to keep the channel layout?");
  EXPECT_EQ(question.informativeText,
            "This routed output has 4 channels in an order a WAV file can't store with a layout tag. Saving as WAV "
            "keeps the audio but an app reopening it can't tell which channel is which. Core Audio Format (.caf) "
            "stores the exact layout.");
  EXPECT_EQ(question.buttons, (QStringList{"Save as CAF", "Save as WAV Anyway", "Cancel"}));

  // "Save as WAV Anyway".
  const auto written = command.exportRoutedOutput();
  ASSERT_TRUE(written);
  EXPECT_EQ(written->string(), output);
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].title, "Render Routed Output");
  EXPECT_EQ(requests[0].proposedName, "surround_routed.wav");
  EXPECT_EQ(requests[0].allowedExtensions, QStringList{"wav"});
  EXPECT_EQ(requests[0].directory, std::filesystem::path(session.folder.path()));
  // The session still has the file it had.
  EXPECT_EQ(session.engine->loadedFile()->url, std::filesystem::path(input));

  // "Save as CAF": the panel proposes a CAF, and the same samples go into it.
  const std::string wav = output;
  output = session.folder.file("mixdown.caf");
  ASSERT_TRUE(command.exportRoutedOutput());
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[1].proposedName, "surround_routed.caf");
  EXPECT_EQ(requests[1].allowedExtensions, QStringList{"caf"});
  EXPECT_EQ(session.user->seen.size(), 3u);

  const auto g = [&](int out, int src) { return gainText(*routingGainFor(r, out, src)); };
  const std::string pan = "pan=4c|c0=" + g(0, 0) + "*c0+" + g(0, 2) + "*c2+" + g(0, 4) + "*c4" +  //
                          "|c1=" + g(1, 2) + "*c2-" + g(1, 1) + "*c1" +                          //
                          "|c2=" + g(3, 3) + "*c3" +                                             //
                          "|c3=" + g(4, 5) + "*c5+" + g(4, 4) + "*c4";
  const std::string reference = session.folder.file("reference.wav");
  const CommandResult ffmpeg =
      runCommand("ffmpeg -v error -y -i '" + input + "' -af '" + pan + "' -c:a pcm_f32le '" + reference + "' 2>&1");
  ASSERT_EQ(ffmpeg.exitCode, 0) << ffmpeg.output;

  const ReadBack ours = readFile(wav);
  const ReadBack theirs = readFile(reference);
  const ReadBack caf = readFile(output);
  EXPECT_EQ(caf.format & SF_FORMAT_TYPEMASK, SF_FORMAT_CAF);
  EXPECT_EQ(caf.format & SF_FORMAT_SUBMASK, SF_FORMAT_FLOAT);
  EXPECT_EQ(caf.data, ours.data);
  // FFmpeg reads its layout chunk: four channels, none of them a speaker.
  const CommandResult probe = runCommand("ffprobe -v error -show_entries stream=channels,channel_layout -of csv=p=0 '" + output + "'");
  EXPECT_EQ(probe.exitCode, 0);
  std::printf("[ measured ] ffprobe of the CAF: %s", probe.output.c_str());
  EXPECT_EQ(probe.output.rfind("4", 0), 0u) << probe.output;
  ASSERT_EQ(ours.channels, 4);
  EXPECT_EQ(ours.format & SF_FORMAT_SUBMASK, SF_FORMAT_FLOAT);
  EXPECT_EQ(ours.format & SF_FORMAT_TYPEMASK, SF_FORMAT_WAVEX);  // more than two channels
  EXPECT_EQ(ours.rate, 48000);
  ASSERT_EQ(theirs.channels, 4);
  for (int c = 0; c < 4; ++c) {
    ASSERT_EQ(ours.data[c].size(), surround.channels[0].size());
    ASSERT_EQ(theirs.data[c].size(), ours.data[c].size());
    double signal = 0.0, residual = 0.0, worst = 0.0;
    for (std::size_t i = 0; i < ours.data[c].size(); ++i) {
      const double d = double(ours.data[c][i]) - theirs.data[c][i];
      signal += double(theirs.data[c][i]) * theirs.data[c][i];
      residual += d * d;
      worst = std::max(worst, std::fabs(d));
    }
    const double nullDB = residual > 0.0 ? 10.0 * std::log10(residual / signal) : -HUGE_VAL;
    std::printf("[ measured ] routed channel %d against ffmpeg pan: residual %.1f dB, worst sample %.2e\n", c, nullDB, worst);
    EXPECT_LT(nullDB, -120.0) << "channel " << c;
    EXPECT_LT(worst, 1e-6) << "channel " << c;
  }
}

TEST_F(RoutedExport, RefusesTheLoadedFileAndSaysWhyWhenNothingIsRouted) {
  SessionOnJack session;
  const std::string input = session.folder.file("stereo.wav");
  writeWav(input, programme(48000.0, 2, 0.5, 3));
  ASSERT_TRUE(session.open(input, "system"));
  Transport& transport = session.transport();
  const std::string before = bytesOf(input);

  // The loaded file itself, under another spelling, is refused with the in-place alert; the
  // file stays byte for byte.
  int panels = 0;
  std::optional<std::filesystem::path> answer = std::filesystem::path(session.folder.path()) / "." / "stereo.wav";
  RoutedOutputExport command(*session.engine, [&](const SavePanelRequest&) {
    ++panels;
    return answer;
  });
  EXPECT_FALSE(command.exportRoutedOutput());
  ASSERT_EQ(session.user->seen.size(), 1u);
  EXPECT_EQ(session.user->seen[0].messageText, "Cannot overwrite the original file");
  EXPECT_EQ(session.user->seen[0].informativeText,
            "Save As always writes a new file. To save over the loaded file instead, turn on Settings → Editing → "
            "Allow Save to overwrite the original file, then use Save (Ctrl+S). Otherwise choose a different name or "
            "location.");
  EXPECT_EQ(bytesOf(input), before);
  // With overwriting allowed, the advice points at Save.
  session.engine->settings().setCorvaneAllowSaveOverwrite(true);
  EXPECT_FALSE(command.exportRoutedOutput());
  ASSERT_EQ(session.user->seen.size(), 2u);
  EXPECT_TRUE(session.user->seen[1].informativeText.startsWith(
      "Save As always writes a new file. To replace the loaded file with the edited audio, use Save (Ctrl+S)"));

  // A cancelled panel ends the command without a word or a file.
  answer.reset();
  EXPECT_FALSE(command.exportRoutedOutput());
  EXPECT_EQ(session.user->seen.size(), 2u);
  EXPECT_EQ(panels, 3);

  // Outputs 0 and 2 routed (the right channel onto the third output): a two-channel file.
  ChannelRoutings r = transport.routings();
  ASSERT_TRUE(removeRoute(r, 1, 1) && addRoute(r, 2, 1));
  transport.setRoutings(r);
  answer = std::filesystem::path(session.folder.file("two.wav"));
  ASSERT_TRUE(command.exportRoutedOutput());
  const ReadBack two = readFile(session.folder.file("two.wav"));
  ASSERT_EQ(two.channels, 2);
  const ReadBack original = readFile(input);
  EXPECT_EQ(two.data[0], original.data[0]);
  EXPECT_EQ(two.data[1], original.data[1]);

  // Nothing routed at all: the command says so and asks for no destination.
  for (int out = 0; out < static_cast<int>(r.size()); ++out) {
    for (int src = 0; src < 2; ++src) removeRoute(r, out, src);
  }
  transport.setRoutings(r);
  EXPECT_FALSE(command.exportRoutedOutput());
  EXPECT_EQ(panels, 4);
  ASSERT_EQ(session.user->seen.size(), 3u);
  EXPECT_EQ(session.user->seen[2].messageText, "Couldn't apply the edit");
  EXPECT_EQ(session.user->seen[2].informativeText,
            "No output has a routed source yet, so there's nothing to render. Route at least one source in the "
            "matrix first.");
  // With an edit-failure handler installed, the text goes there instead of an alert.
  QStringList reported;
  session.engine->setOnEditFailure([&](const QString& text) { reported.push_back(text); });
  EXPECT_FALSE(command.exportRoutedOutput());
  EXPECT_EQ(session.user->seen.size(), 3u);
  ASSERT_EQ(reported.size(), 1);
  EXPECT_TRUE(reported[0].startsWith("No output has a routed source yet"));
  session.engine->setOnEditFailure(nullptr);

  // A CAF name chosen in the panel writes a CAF, whatever the proposed type was.
  addRoute(r, 0, 0);
  transport.setRoutings(r);
  answer = std::filesystem::path(session.folder.file("left.caf"));
  ASSERT_TRUE(command.exportRoutedOutput());
  const ReadBack caf = readFile(session.folder.file("left.caf"));
  EXPECT_EQ(caf.format & SF_FORMAT_TYPEMASK, SF_FORMAT_CAF);
  ASSERT_EQ(caf.channels, 1);
  EXPECT_EQ(caf.data[0], original.data[0]);
}

}  // namespace
}  // namespace corvane::test
