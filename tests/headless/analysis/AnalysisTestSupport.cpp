#include "AnalysisTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace corvane::test {

SharedAudioBuffer toBuffer(const Planar& signal) {
  auto buffer = AudioBuffer::create(signal.channelCount(), signal.frames(), signal.rate);
  for (int c = 0; c < signal.channelCount(); ++c) {
    std::copy(signal.channels[static_cast<std::size_t>(c)].begin(), signal.channels[static_cast<std::size_t>(c)].end(),
              buffer->channel(c));
  }
  return buffer;
}

Planar slice(const AudioBuffer& buffer, FrameCount startFrame, FrameCount frameCount) {
  Planar p(buffer.sampleRate(), buffer.channelCount(), 0);
  for (int c = 0; c < buffer.channelCount(); ++c) {
    const float* from = buffer.channel(c) + startFrame;
    p.channels[static_cast<std::size_t>(c)].assign(from, from + frameCount);
  }
  return p;
}

SelectionAnalysisSettings plainSettings(int channelCount) {
  SelectionAnalysisSettings s;
  s.detectSpeech = false;
  s.channelWeights.assign(static_cast<std::size_t>(channelCount), 1.0);
  return s;
}

SelectionAnalysisOutput analyse(const SelectionFrames& frames, const SelectionAnalysisSettings& settings) {
  std::optional<SelectionAnalysisOutput> out = runSelectionAnalysis(frames, settings);
  if (!out) throw std::runtime_error("the pass stopped without being asked to");
  return std::move(*out);
}

SelectionAnalysisOutput analyse(const SharedAudioBuffer& buffer, double lowerSec, double upperSec,
                                const SelectionAnalysisSettings& settings) {
  std::optional<SelectionFrames> frames = SelectionFrames::capture(buffer, lowerSec, upperSec);
  if (!frames) throw std::runtime_error("nothing to capture");
  return analyse(*frames, settings);
}

namespace {

// The numbers of a `sox stats` row, after its label; the first is the "Overall" column.
std::vector<double> statsRow(const std::string& output, const std::string& label) {
  std::istringstream lines(output);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.rfind(label, 0) != 0) continue;
    std::istringstream values(line.substr(label.size()));
    std::vector<double> row;
    std::string word;
    while (values >> word) row.push_back(std::stod(word));
    return row;
  }
  throw std::runtime_error("sox stats gave no \"" + label + "\" row:\n" + output);
}

// A row's per-channel values: with one channel sox prints one column, with more an
// "Overall" column comes first.
std::vector<double> perChannel(const std::vector<double>& row, int channelCount) {
  if (channelCount == 1) return row;
  return std::vector<double>(row.begin() + 1, row.end());
}

}  // namespace

SoxStats soxStats(const std::string& wavPath, int channelCount, std::optional<std::pair<FrameCount, FrameCount>> trim) {
  std::string command = "sox '" + wavPath + "' -n";
  if (trim) command += " trim " + std::to_string(trim->first) + "s " + std::to_string(trim->second) + "s";
  command += " stats 2>&1";
  const CommandResult r = runCommand(command);
  if (r.exitCode != 0) throw std::runtime_error("sox failed:\n" + r.output);
  SoxStats s;
  s.dcOffset = perChannel(statsRow(r.output, "DC offset"), channelCount);
  const std::vector<double> minimum = perChannel(statsRow(r.output, "Min level"), channelCount);
  const std::vector<double> maximum = perChannel(statsRow(r.output, "Max level"), channelCount);
  s.rmsDB = perChannel(statsRow(r.output, "RMS lev dB"), channelCount);
  for (std::size_t c = 0; c < minimum.size(); ++c) {
    s.peakDB.push_back(20.0 * std::log10(std::max(std::fabs(minimum[c]), std::fabs(maximum[c]))));
  }
  return s;
}

std::vector<std::vector<double>> welchReference(const Planar& signal, int nperseg, int noverlap) {
  TemporaryDirectory dir;
  const std::string in = dir.file("samples.f32"), out = dir.file("spectra.f64");
  {
    std::ofstream file(in, std::ios::binary);
    for (const auto& channel : signal.channels) {
      file.write(reinterpret_cast<const char*>(channel.data()), static_cast<std::streamsize>(channel.size() * sizeof(float)));
    }
  }
  const std::string command = std::string(CORVANE_PYTHON3) + " '" + CORVANE_SOURCE_DIR +
                              "/tests/headless/analysis/welch_reference.py' '" + in + "' " +
                              std::to_string(signal.channelCount()) + " " + std::to_string(signal.frames()) + " " +
                              std::to_string(signal.rate) + " " + std::to_string(nperseg) + " " +
                              std::to_string(noverlap) + " '" + out + "' 2>&1";
  const CommandResult r = runCommand(command);
  if (r.exitCode != 0) throw std::runtime_error("the Welch reference failed:\n" + r.output);
  const std::size_t rows = static_cast<std::size_t>(signal.channelCount() >= 2 ? signal.channelCount() + 2 : 1);
  const std::size_t bins = static_cast<std::size_t>(nperseg / 2);
  std::vector<double> values(rows * bins);
  std::ifstream file(out, std::ios::binary);
  file.read(reinterpret_cast<char*>(values.data()), static_cast<std::streamsize>(values.size() * sizeof(double)));
  if (!file) throw std::runtime_error("the Welch reference wrote too little");
  std::vector<std::vector<double>> spectra(rows);
  for (std::size_t row = 0; row < rows; ++row) spectra[row].assign(values.begin() + static_cast<std::ptrdiff_t>(row * bins), values.begin() + static_cast<std::ptrdiff_t>((row + 1) * bins));
  return spectra;
}

DrmeterResult ffmpegDrmeter(const std::string& wavPath, int channelCount) {
  const CommandResult r = runCommand("ffmpeg -nostdin -hide_banner -nostats -i '" + wavPath + "' -af drmeter -f null - 2>&1");
  if (r.exitCode != 0) throw std::runtime_error("ffmpeg failed:\n" + r.output);
  const std::regex channelLine(R"(Channel (\d+): DR: ([0-9.]+))"), overallLine(R"(Overall DR: ([0-9.]+))");
  DrmeterResult d;
  d.channels.assign(static_cast<std::size_t>(channelCount), -1.0);
  for (std::sregex_iterator it(r.output.begin(), r.output.end(), channelLine), end; it != end; ++it) {
    const int c = std::stoi((*it)[1]) - 1;
    if (c >= 0 && c < channelCount) d.channels[static_cast<std::size_t>(c)] = std::stod((*it)[2]);
  }
  std::smatch m;
  if (std::regex_search(r.output, m, overallLine)) d.overall = std::stod(m[1]);
  return d;
}

static void expectSameCurve(const std::vector<LevelCurvePoint>& a, const std::vector<LevelCurvePoint>& b, const char* what) {
  ASSERT_EQ(a.size(), b.size()) << what;
  for (std::size_t i = 0; i < a.size(); ++i) {
    ASSERT_EQ(a[i].time, b[i].time) << what << " point " << i;
    ASSERT_EQ(a[i].value, b[i].value) << what << " point " << i;
  }
}

void expectIdentical(const SelectionAnalysisOutput& x, const SelectionAnalysisOutput& y) {
  const SelectionAnalysisResult& a = x.result;
  const SelectionAnalysisResult& b = y.result;
  EXPECT_EQ(a.timeRange, b.timeRange);
  EXPECT_EQ(a.peakDB, b.peakDB);
  EXPECT_EQ(a.truePeakDBByChannel, b.truePeakDBByChannel);
  EXPECT_EQ(a.rmsDB, b.rmsDB);
  EXPECT_EQ(a.crestFactorDB, b.crestFactorDB);
  EXPECT_EQ(a.dcOffset, b.dcOffset);
  EXPECT_EQ(a.samplePeakDB, b.samplePeakDB);
  EXPECT_EQ(a.headroomDB, b.headroomDB);
  EXPECT_EQ(a.dynamicRange, b.dynamicRange);
  EXPECT_EQ(a.channelDR, b.channelDR);
  EXPECT_EQ(a.integratedLUFS, b.integratedLUFS);
  EXPECT_EQ(a.loudnessRange, b.loudnessRange);
  EXPECT_EQ(a.truePeakDB, b.truePeakDB);
  EXPECT_EQ(a.speechGatedLUFS, b.speechGatedLUFS);
  EXPECT_EQ(a.speechPercentage, b.speechPercentage);
  EXPECT_EQ(a.speechGatedNoiseFloorDBRMS, b.speechGatedNoiseFloorDBRMS);
  EXPECT_EQ(a.speechRanges, b.speechRanges);
  EXPECT_EQ(a.fftMagnitudes, b.fftMagnitudes);
  ASSERT_EQ(a.msFftMagnitudes.has_value(), b.msFftMagnitudes.has_value());
  if (a.msFftMagnitudes) {
    EXPECT_EQ(a.msFftMagnitudes->mid, b.msFftMagnitudes->mid);
    EXPECT_EQ(a.msFftMagnitudes->side, b.msFftMagnitudes->side);
  }
  expectSameCurve(a.truePeakCurve, b.truePeakCurve, "true peak");
  EXPECT_EQ(a.fftSize, b.fftSize);
  EXPECT_EQ(a.sampleRate, b.sampleRate);
  EXPECT_EQ(a.maxMomentaryLUFS, b.maxMomentaryLUFS);
  EXPECT_EQ(a.maxShortTermLUFS, b.maxShortTermLUFS);
  expectSameCurve(a.momentaryCurve, b.momentaryCurve, "momentary");
  expectSameCurve(a.shortTermCurve, b.shortTermCurve, "short-term");
  expectSameCurve(a.integratedCurve, b.integratedCurve, "integrated");
  ASSERT_EQ(x.spectrogramColumns.size(), y.spectrogramColumns.size());
  for (std::size_t i = 0; i < x.spectrogramColumns.size(); ++i) {
    ASSERT_EQ(x.spectrogramColumns[i].time, y.spectrogramColumns[i].time);
    ASSERT_EQ(x.spectrogramColumns[i].mags, y.spectrogramColumns[i].mags);
  }
}

}  // namespace corvane::test
