#include "SpeechScene.h"

#include <random>

namespace corvane::test {
namespace {

std::vector<float> monoOf(const WavFile& wav) {
  std::vector<float> mono(static_cast<std::size_t>(wav.frames()));
  for (std::int64_t i = 0; i < wav.frames(); ++i) mono[static_cast<std::size_t>(i)] = wav.interleaved[static_cast<std::size_t>(i * wav.channels)];
  return mono;
}

std::vector<float> phrase(const std::filesystem::path& folder, const std::string& name, const std::string& text,
                          const std::string& voice) {
  const auto raw = folder / (name + "-raw.wav");
  const auto out = folder / (name + ".wav");
  run("espeak-ng -v " + voice + " -s 160 -w " + quoted(raw) + " '" + text + "'");
  // Cut the synthesiser's own silence, so the phrase's span is where it sounds.
  run("sox " + quoted(raw) + " -b 32 -e float " + quoted(out) +
      " silence 1 0.005 -45d reverse silence 1 0.005 -45d reverse rate -v 48000 norm -12");
  return monoOf(readWav(out));
}

std::vector<float> synth(const std::filesystem::path& folder, const std::string& name, const std::string& effects) {
  const auto out = folder / (name + ".wav");
  run("sox -R -n -r 48000 -c 1 -b 32 -e float " + quoted(out) + " " + effects);
  return monoOf(readWav(out));
}

}  // namespace

SpeechScene SpeechScene::build(const std::filesystem::path& folder) {
  std::vector<float> mono;
  SpeechScene scene;
  auto silence = [&](double seconds) { mono.insert(mono.end(), static_cast<std::size_t>(seconds * kRate), 0.0f); };
  auto place = [&](const std::vector<float>& piece) {
    const Span span{static_cast<FrameCount>(mono.size()), static_cast<FrameCount>(mono.size() + piece.size())};
    mono.insert(mono.end(), piece.begin(), piece.end());
    return span;
  };

  silence(1.0);
  scene.phrases.push_back(place(phrase(folder, "a", "The quick brown fox jumps over the lazy dog", "en-us")));
  silence(0.8);
  scene.noise = place(synth(folder, "noise", "synth 2.5 pinknoise vol 0.8"));
  silence(0.8);
  scene.phrases.push_back(place(phrase(folder, "b", "Please measure the dialogue level before delivery", "en")));
  silence(1.0);
  {
    // A click: 60 ms of white noise that decays fast, as a dropped object or a mouth click.
    std::mt19937 random(11);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    std::vector<float> click(static_cast<std::size_t>(0.06 * kRate));
    for (std::size_t i = 0; i < click.size(); ++i) click[i] = 0.5f * uniform(random) * std::exp(-static_cast<float>(i) / 700.0f);
    scene.click = place(click);
  }
  silence(1.0);
  scene.phrases.push_back(place(phrase(folder, "c", "Seven bright apples fell from the tree", "en-us")));
  silence(0.5);
  scene.phrases.push_back(place(phrase(folder, "d", "and rolled slowly down the hill", "en-us")));
  silence(0.8);
  scene.chord = place(synth(folder, "chord", "synth 2.5 sine 220 sine 277.2 sine 329.6 sine 440 tremolo 4 30 vol 0.45"));
  silence(0.7);

  scene.audio = AudioBuffer::create(2, static_cast<FrameCount>(mono.size()), kRate);
  std::copy(mono.begin(), mono.end(), scene.audio->channel(0));
  std::copy(mono.begin(), mono.end(), scene.audio->channel(1));
  return scene;
}

}  // namespace corvane::test
