// corvane process IN -o OUT [STEP...]: the editor's operations on a file, for scripts and batch
// delivery. The steps run in the order given, through the same EditOperations as the editor,
// and the result is written in the source's format.
//
// Memory. A file that fits the memory limits (AudioLoadLimits) is loaded once and edited in
// memory; each rebuilding step takes the editor's memory test (trim: the rebuild fit test;
// loudness normalize and limit: factor 6; peak normalize: factor 4) and streams through a
// temporary float WAV when it fails. A file too large to load is streamed from disk step by
// step, chunk by chunk. Both roads give the same samples. --memory-limit MB caps the memory
// the tool believes it has (for shared machines, and to force the streaming road).
//
// Output format: the container named by OUT's extension (WAV, RF64, Wave64, AIFF, AIFF-C, CAF);
// without one, the source's container when Corvane writes it, else WAV. The encoding is the
// source's: its bit depth for PCM and lossless sources (a 24-bit FLAC becomes a 24-bit WAV),
// 32-bit float for lossy sources (MP3, AAC, Vorbis, Opus), whose decoded samples have no bit
// depth to return to. Rate and channel layout are the source's. OUT is written under a hidden
// temporary name beside it and renamed into place when complete, and it may never be IN
// (EditOutputGuard: any spelling, a symbolic or a hard link).
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "cli/CliCommands.h"
#include "cli/CliSupport.h"
#include "core/AudioBuffer.h"
#include "core/ChannelOrder.h"
#include "core/Decibels.h"
#include "headless/TemporaryFiles.h"
#include "headless/edits/EditKernels.h"
#include "headless/edits/EditOperations.h"
#include "headless/edits/EditSource.h"
#include "headless/files/AudioContainer.h"
#include "headless/files/AudioFileIdentity.h"
#include "headless/files/AudioFileReader.h"
#include "headless/files/AudioFileWriter.h"
#include "headless/files/AudioLoadLimits.h"
#include "headless/files/EditOutputGuard.h"
#include "headless/files/PCMWriteSettings.h"
#include "headless/files/UserText.h"
#include "headless/speech/SileroVADAnalyser.h"

namespace corvane::cli {
namespace {

namespace fs = std::filesystem;
using Ops = EditOperations;

constexpr const char* kUsage =
    "usage: corvane process IN -o OUT STEP... [--ceiling DBTP] [--fade-curve linear|log|equal-power]\n"
    "                       [--memory-limit MB]\n"
    "steps, applied in the order given:\n"
    "  --gain DB                 change the level by DB decibels\n"
    "  --normalize-peak DBFS     scale the largest sample to DBFS\n"
    "  --normalize-lufs LUFS     scale to an integrated loudness, true-peak limited at --ceiling (-1 dBTP)\n"
    "  --limit DBTP              true-peak limit at DBTP\n"
    "  --fade-in S, --fade-out S fade the first or last S seconds (--fade-curve, equal-power by default)\n"
    "  --trim START END          keep START ... END seconds\n"
    "  --level-dialogue DB       duck what is not speech by DB decibels";

constexpr double kDefaultCeilingDBTP = -1.0;
constexpr double kAttackMs = 5.0;
constexpr double kReleaseMs = 200.0;

class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
class NamedError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class StepKind { gain, normalizePeak, normalizeLUFS, limit, fadeIn, fadeOut, trim, levelDialogue };

struct Step {
  StepKind kind;
  std::string option;
  double value = 0.0;
  double second = 0.0;  // the END of --trim
};

struct Request {
  fs::path input;
  fs::path output;
  std::vector<Step> steps;
  std::optional<double> ceilingDBTP;
  Ops::FadeCurve fadeCurve = Ops::FadeCurve::equalPower;
  std::optional<double> memoryLimitMB;
};

double parseNumber(const std::string& option, const std::string& text) {
  double value = 0.0;
  const char* begin = text.data();
  const char* end = begin + text.size();
  if (!text.empty() && text.front() == '+') ++begin;
  const auto result = std::from_chars(begin, end, value);
  if (result.ec != std::errc() || result.ptr != end || !std::isfinite(value)) {
    throw UsageError(option + " takes a number, not \"" + text + "\".");
  }
  return value;
}

Request parse(const std::vector<std::string>& args) {
  Request request;
  std::size_t i = 0;
  const auto value = [&](const std::string& option) -> const std::string& {
    if (i + 1 >= args.size()) throw UsageError(option + " needs a value.");
    return args[++i];
  };
  const auto step = [&](StepKind kind, const std::string& option) {
    Step s{kind, option, parseNumber(option, value(option))};
    if (kind == StepKind::trim) s.second = parseNumber(option, value(option));
    request.steps.push_back(s);
  };
  for (; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "-o" || arg == "--output") {
      if (!request.output.empty()) throw UsageError("Give one output.");
      request.output = value(arg);
    } else if (arg == "--gain") {
      step(StepKind::gain, arg);
    } else if (arg == "--normalize-peak") {
      step(StepKind::normalizePeak, arg);
    } else if (arg == "--normalize-lufs") {
      step(StepKind::normalizeLUFS, arg);
    } else if (arg == "--limit") {
      step(StepKind::limit, arg);
    } else if (arg == "--fade-in") {
      step(StepKind::fadeIn, arg);
    } else if (arg == "--fade-out") {
      step(StepKind::fadeOut, arg);
    } else if (arg == "--trim") {
      step(StepKind::trim, arg);
    } else if (arg == "--level-dialogue") {
      step(StepKind::levelDialogue, arg);
    } else if (arg == "--ceiling") {
      request.ceilingDBTP = parseNumber(arg, value(arg));
    } else if (arg == "--fade-curve") {
      const std::string& name = value(arg);
      if (name == "linear") request.fadeCurve = Ops::FadeCurve::linear;
      else if (name == "log") request.fadeCurve = Ops::FadeCurve::log;
      else if (name == "equal-power") request.fadeCurve = Ops::FadeCurve::equalPower;
      else throw UsageError("--fade-curve is linear, log or equal-power, not \"" + name + "\".");
    } else if (arg == "--memory-limit") {
      const double megabytes = parseNumber(arg, value(arg));
      if (!(megabytes > 0.0)) throw UsageError("--memory-limit takes a positive number of megabytes.");
      request.memoryLimitMB = megabytes;
    } else if (!arg.empty() && arg[0] == '-' && arg != "-") {
      throw UsageError("Unknown option " + arg + ".");
    } else if (request.input.empty()) {
      request.input = arg;
    } else {
      throw UsageError("Give one input file.");
    }
  }
  if (request.input.empty()) throw UsageError("Give an input file.");
  if (request.output.empty()) throw UsageError("Give an output file with -o.");
  if (request.steps.empty()) throw UsageError("Give at least one step.");
  const bool normalizes = std::any_of(request.steps.begin(), request.steps.end(),
                                      [](const Step& s) { return s.kind == StepKind::normalizeLUFS; });
  if (request.ceilingDBTP && !normalizes) throw UsageError("--ceiling goes with --normalize-lufs.");
  for (const Step& s : request.steps) {
    if ((s.kind == StepKind::fadeIn || s.kind == StepKind::fadeOut) && s.value < 0.0) {
      throw UsageError(s.option + " takes a length of 0 seconds or more.");
    }
    if (s.kind == StepKind::trim && !(s.value >= 0.0 && s.second > s.value)) {
      throw UsageError("--trim takes START and END in seconds, with 0 <= START < END.");
    }
  }
  return request;
}

// What OUT will be: container and encoding (see the file comment).
PCMWriteSettings outputSettings(const fs::path& input, const fs::path& output, const AudioFileReader& reader,
                                const AudioStreamFormat& format) {
  std::optional<AudioContainer> container;
  const std::string extension = output.extension().string();
  if (!extension.empty()) {
    container = audioContainer(extension);
    if (!container || !isWritable(*container)) {
      throw UsageError("corvane process writes WAV, RF64, Wave64, AIFF, AIFF-C and CAF files; \"" +
                       output.filename().string() + "\" names another format.");
    }
  } else {
    const auto identity = AudioFileIdentity::inspect(input);
    container = identity && identity->container && isWritable(*identity->container) ? *identity->container
                                                                                    : AudioContainer::wav;
  }
  const PCMEncoding encoding = reader.pcmEncoding().value_or(PCMEncoding::float32);
  return PCMWriteSettings::make(*container, format, encoding);
}

// A temporary file of this run, removed when the object goes.
class TemporaryAudio {
 public:
  explicit TemporaryAudio(std::string_view tag) : _path(Ops::temporaryResultPath(tag)) {}
  ~TemporaryAudio() {
    std::error_code ignored;
    fs::remove(_path, ignored);
  }
  TemporaryAudio(const TemporaryAudio&) = delete;
  TemporaryAudio& operator=(const TemporaryAudio&) = delete;
  const fs::path& path() const { return _path; }

 private:
  fs::path _path;
};

// The audio between steps: a buffer in memory, or a file on disk (the input, or the previous
// step's temporary result).
class Audio {
 public:
  void setBuffer(SharedAudioBuffer buffer) {
    _fileSource.reset();
    _ownedFile.reset();
    _buffer = std::move(buffer);
    _bufferSource = std::make_unique<BufferEditSource>(*_buffer);
  }
  void setFile(const fs::path& file, std::unique_ptr<TemporaryAudio> owned = nullptr) {
    _bufferSource.reset();
    _buffer.reset();
    _fileSource = std::make_unique<FileEditSource>(file);
    _ownedFile = std::move(owned);
  }
  void release() {
    _bufferSource.reset();
    _buffer.reset();
    _fileSource.reset();
    _ownedFile.reset();
  }

  bool inMemory() const { return _buffer != nullptr; }
  AudioBuffer& buffer() { return *_buffer; }
  EditSource& source() {
    if (_bufferSource) return *_bufferSource;
    return *_fileSource;
  }

 private:
  SharedAudioBuffer _buffer;
  std::unique_ptr<BufferEditSource> _bufferSource;
  std::unique_ptr<FileEditSource> _fileSource;
  std::unique_ptr<TemporaryAudio> _ownedFile;
};

// Reads a whole file into a buffer (canonical channel order), or null when it doesn't fit.
SharedAudioBuffer readIntoMemory(const fs::path& path) {
  FileEditSource source(path);
  if (!AudioLoadLimits::isWithinLimits(source.frameLength(), source.channelCount())) return nullptr;
  SharedAudioBuffer buffer = AudioBuffer::create(source.channelCount(), source.frameLength(), source.sampleRate());
  source.read(0, source.frameLength(), buffer->channels());
  if (static_cast<int>(source.channelPositions().size()) == source.channelCount()) {
    buffer->setChannelPositions(source.channelPositions());
  }
  return buffer;
}

class Processor {
 public:
  explicit Processor(const Request& request) : _request(request) {}

  void load(const AudioFileReader& reader) {
    SharedAudioBuffer buffer;
    if (AudioLoadLimits::isWithinLimits(reader.length(), reader.channelCount())) buffer = readIntoMemory(_request.input);
    if (buffer) {
      _audio.setBuffer(std::move(buffer));
    } else {
      _audio.setFile(_request.input);
    }
  }

  void run(const Step& step) {
    switch (step.kind) {
      case StepKind::gain: inPlace(step, gainEditor(step.value)); break;
      case StepKind::fadeIn:
      case StepKind::fadeOut: inPlace(step, fadeEditor(step)); break;
      case StepKind::levelDialogue: inPlace(step, dialogueEditor(step)); break;
      case StepKind::trim: trim(step); break;
      case StepKind::normalizePeak:
        rebuild(step, 4, [&](const ChannelData& d, double rate) { return Ops::normalizePeak(d, step.value, rate); },
                [&](EditSource& s, const fs::path& to) {
                  return Ops::writePeakNormalizedWAV(s, step.value, to, Ops::kStreamingChunkFrames);
                });
        break;
      case StepKind::normalizeLUFS: {
        const double ceiling = _request.ceilingDBTP.value_or(kDefaultCeilingDBTP);
        rebuild(step, 6,
                [&](const ChannelData& d, double rate) {
                  return Ops::normalizeLUFS(d, step.value, ceiling, rate, weights());
                },
                [&](EditSource& s, const fs::path& to) {
                  return Ops::writeNormalizedWAV(s, step.value, ceiling, to, Ops::kStreamingChunkFrames);
                });
        break;
      }
      case StepKind::limit:
        rebuild(step, 6, [&](const ChannelData& d, double rate) { return Ops::limitTruePeak(d, step.value, rate); },
                [&](EditSource& s, const fs::path& to) {
                  return Ops::writeLimitedWAV(s, step.value, to, Ops::kStreamingChunkFrames);
                });
        break;
    }
  }

  // Writes the audio into OUT's format under a temporary name beside OUT, then renames it.
  void write(const PCMWriteSettings& baseSettings) {
    PCMWriteSettings settings = baseSettings;
    EditSource* source = &_audio.source();
    settings.format.channelPositions = source->channelPositions();
    settings.expectedFrames = source->frameLength();
    const fs::path& output = _request.output;
    std::string partialName = output.filename().string();
    partialName.insert(0, 1, '.');
    partialName += ".corvane-process-" + makeUUIDString() + ".tmp";
    const fs::path partial = output.parent_path() / partialName;
    struct RemoveUnlessRenamed {
      const fs::path& path;
      bool renamed = false;
      ~RemoveUnlessRenamed() {
        std::error_code ignored;
        if (!renamed) fs::remove(path, ignored);
      }
    } cleanup{partial};
    auto writer = AudioFileWriter::create(partial, settings);
    const int channels = source->channelCount();
    std::vector<float> scratch(static_cast<std::size_t>(channels) * static_cast<std::size_t>(Ops::kStreamingChunkFrames));
    std::vector<float*> pointers(static_cast<std::size_t>(channels));
    for (int c = 0; c < channels; ++c) {
      pointers[static_cast<std::size_t>(c)] = scratch.data() + static_cast<std::size_t>(c) * Ops::kStreamingChunkFrames;
    }
    std::int64_t clipped = 0;
    const FrameCount total = source->frameLength();
    for (FrameCount first = 0; first < total;) {
      const FrameCount n = std::min(Ops::kStreamingChunkFrames, total - first);
      source->read(first, n, pointers.data());
      if (!isFloat(settings.encoding)) {
        for (int c = 0; c < channels; ++c) {
          const float* x = pointers[static_cast<std::size_t>(c)];
          for (FrameCount i = 0; i < n; ++i) clipped += std::fabs(x[i]) > 1.0f ? 1 : 0;
        }
      }
      writer->write(pointers.data(), n);
      first += n;
    }
    writer->finish();
    writer.reset();
    syncFile(partial);
    std::error_code error;
    fs::rename(partial, output, error);
    if (error) throw NamedError("Couldn't write " + output.string() + ": " + error.message() + ".");
    cleanup.renamed = true;
    syncFile(output.parent_path().empty() ? fs::path(".") : output.parent_path());
    if (clipped > 0) {
      printError("[process] " + std::to_string(clipped) + " samples above full scale were clipped in the " +
                 std::string(label(settings.encoding)) + " output.");
    }
  }

 private:
  static void syncFile(const fs::path& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
  }

  double sampleRate() { return _audio.source().sampleRate(); }
  FrameCount frameLength() { return _audio.source().frameLength(); }
  int channelCount() { return _audio.source().channelCount(); }
  std::vector<double> weights() { return ChannelOrder::bs1770Weights(_audio.buffer()); }

  // The frames of a duration in seconds, to the nearest frame.
  static FrameCount framesOf(double seconds, double rate) { return static_cast<FrameCount>(std::llround(seconds * rate)); }

  Ops::ChunkEditor gainEditor(double gainDB) const {
    const double factor = dbToLinear(gainDB);
    return [factor](float* const* channels, int count, FrameCount first, FrameCount frames) {
      EditKernels::applyGain({channels, count, first, frames}, first, first + frames, factor);
    };
  }

  Ops::ChunkEditor fadeEditor(const Step& step) {
    const FrameCount total = frameLength();
    const FrameCount length = std::min(total, framesOf(step.value, sampleRate()));
    if (length <= 0) return nullptr;
    const bool fadeIn = step.kind == StepKind::fadeIn;
    const FrameCount start = fadeIn ? 0 : total - length;
    const FrameCount end = fadeIn ? length : total;
    const auto direction = fadeIn ? Ops::FadeDirection::fadeIn : Ops::FadeDirection::fadeOut;
    const auto curve = _request.fadeCurve;
    return [=](float* const* channels, int count, FrameCount first, FrameCount frames) {
      EditKernels::applyFade({channels, count, first, frames}, start, end, direction, curve);
    };
  }

  Ops::ChunkEditor dialogueEditor(const Step& step) {
    if (step.value == 0.0) return nullptr;
    const double rate = sampleRate();
    const SpeechHistory history = detectSpeech();
    if (std::find(history.begin(), history.end(), true) == history.end()) {
      throw NamedError("No speech was detected in " + _request.input.filename().string() +
                       ", so there is no dialogue to level.");
    }
    const FrameCount blockFrames = std::max<FrameCount>(1, std::llround(rate * kLoudnessBlockSeconds));
    auto gate = std::make_shared<EditKernels::NonSpeechGain>(history, blockFrames, -std::fabs(step.value), 0.0,
                                                             kAttackMs, kReleaseMs, rate);
    if (gate->isIdentity()) return nullptr;
    return [gate](float* const* channels, int count, FrameCount first, FrameCount frames) {
      gate->apply({channels, count, first, frames});
    };
  }

  // The speech history of the audio as it stands, from a mono mix made the same way on both
  // roads (each channel × 1 / channel count), so both give the same history.
  SpeechHistory detectSpeech() {
    const SileroVADAnalyser& detector = SileroVADAnalyser::shared();
    if (!detector.isAvailable()) {
      throw NamedError("--level-dialogue needs the speech detector: " + detector.errorText());
    }
    EditSource* source = &_audio.source();
    const FrameCount total = source->frameLength();
    const int channels = source->channelCount();
    if (!_audio.inMemory() && !AudioLoadLimits::isWithinLimits(total, 1)) {
      throw NamedError("This file is too long for speech detection in the memory available.");
    }
    std::vector<float> mix(static_cast<std::size_t>(total));
    constexpr FrameCount kChunk = 65536;
    std::vector<float> scratch(static_cast<std::size_t>(channels * kChunk));
    std::vector<float*> pointers(static_cast<std::size_t>(channels));
    for (int c = 0; c < channels; ++c) pointers[static_cast<std::size_t>(c)] = scratch.data() + c * kChunk;
    const float scale = 1.0f / static_cast<float>(channels);
    for (FrameCount first = 0; first < total;) {
      const FrameCount n = std::min(kChunk, total - first);
      source->read(first, n, pointers.data());
      for (FrameCount i = 0; i < n; ++i) {
        float sum = 0.0f;
        for (int c = 0; c < channels; ++c) sum += pointers[static_cast<std::size_t>(c)][i] * scale;
        mix[static_cast<std::size_t>(first + i)] = sum;
      }
      first += n;
    }
    try {
      return detector.detectSpeech(mix, source->sampleRate(), SileroVADTuning{});
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception& e) {
      throw NamedError(std::string("Speech detection failed: ") + e.what());
    }
  }

  void inPlace(const Step& step, const Ops::ChunkEditor& editor) {
    if (!editor) {
      note(step, "nothing to do");
      return;
    }
    if (_audio.inMemory()) {
      AudioBuffer& b = _audio.buffer();
      editor(b.channels(), b.channelCount(), 0, b.frameLength());
      return;
    }
    auto result = std::make_unique<TemporaryAudio>("process");
    Ops::writeChunkEditedWAV(_audio.source(), editor, result->path(), Ops::kStreamingChunkFrames);
    adopt(std::move(result));
  }

  void trim(const Step& step) {
    const double rate = sampleRate();
    const FrameCount total = frameLength();
    const FrameCount start = std::min(total, framesOf(step.value, rate));
    const FrameCount end = std::min(total, framesOf(step.second, rate));
    if (start >= end) {
      throw NamedError("--trim " + formatSeconds(step.value) + " " + formatSeconds(step.second) +
                       " keeps nothing of audio " + formatSeconds(static_cast<double>(total) / rate) + " s long.");
    }
    const bool fits = AudioLoadLimits::rebuildEditFits(Ops::decodedBytes(total, channelCount()));
    rebuildWith(step, fits, [&](const ChannelData& d, double r) { return Ops::trim(d, start, end, r); },
                [&](EditSource& s, const fs::path& to) {
                  return Ops::writeTrimmedWAV(s, start, end, to, Ops::kStreamingChunkFrames);
                });
  }

  template <class InMemory, class Streamed>
  void rebuild(const Step& step, int factor, InMemory&& inMemory, Streamed&& streamed) {
    const bool fits = Ops::passesFactorTest(Ops::decodedBytes(frameLength(), channelCount()), factor);
    rebuildWith(step, fits, inMemory, streamed);
  }

  template <class InMemory, class Streamed>
  void rebuildWith(const Step& step, bool fitsInMemory, InMemory&& inMemory, Streamed&& streamed) {
    if (_audio.inMemory() && fitsInMemory) {
      const AudioBuffer& current = _audio.buffer();
      Ops::EditResult result = inMemory(Ops::extractChannelData(current), current.sampleRate());
      if (result.nothingToDo) {
        note(step, "nothing to do");
        return;
      }
      SharedAudioBuffer rebuilt = Ops::buildBuffer(std::move(result), current.channelPositions());
      if (rebuilt) {
        _audio.setBuffer(std::move(rebuilt));
        return;
      }
      // No room for the rebuilt buffer: the same edit streams instead.
    }
    auto result = std::make_unique<TemporaryAudio>("process");
    if (!streamed(_audio.source(), result->path())) {
      note(step, "nothing to do");
      return;
    }
    adopt(std::move(result));
  }

  // Makes a step's temporary result the audio, read into memory when it fits.
  void adopt(std::unique_ptr<TemporaryAudio> result) {
    _audio.release();
    if (SharedAudioBuffer buffer = readIntoMemory(result->path())) {
      _audio.setBuffer(std::move(buffer));
    } else {
      const fs::path file = result->path();
      _audio.setFile(file, std::move(result));
    }
  }

  static std::string formatSeconds(double seconds) { return detail::formatFixed(seconds, 3); }

  static void note(const Step& step, const std::string& text) { printError("[process] " + step.option + ": " + text); }

  const Request& _request;
  Audio _audio;
};

}  // namespace

int runProcessCommand(const std::vector<std::string>& args) {
  if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
    std::printf("%s\n", kUsage);
    return kExitSuccess;
  }
  Request request;
  try {
    request = parse(args);
  } catch (const UsageError& e) {
    printError(e.what());
    printError(kUsage);
    return kExitUsage;
  }
  try {
    EditOutputGuard::assertNotInPlace(request.input, request.output);
    // The limit replaces the machine's memory figures for every decision of this run: whether
    // the file is loaded, and which steps rebuild in memory.
    if (request.memoryLimitMB) {
      const auto limit = static_cast<std::int64_t>(*request.memoryLimitMB * 1024.0 * 1024.0);
      MemoryFigures figures = AudioLoadLimits::readSystemFigures();
      figures.budgetBytes = std::min(figures.budgetBytes, limit);
      figures.availableBytes = std::min(figures.availableBytes, limit);
      AudioLoadLimits::setFiguresForTesting(figures);
    }
    const auto reader = AudioFileReader::open(request.input);
    AudioStreamFormat format;
    format.sampleRate = reader->sampleRate();
    format.channelCount = reader->channelCount();
    const PCMWriteSettings settings = outputSettings(request.input, request.output, *reader, format);
    Processor processor(request);
    processor.load(*reader);
    for (const Step& step : request.steps) processor.run(step);
    processor.write(settings);
    return kExitSuccess;
  } catch (const UsageError& e) {
    printError(e.what());
    return kExitUsage;
  } catch (const std::bad_alloc&) {
    printError("There is not enough memory to process " + request.input.string() + ".");
    return kExitNamedError;
  } catch (const std::exception& e) {
    printError(e.what());
    return kExitNamedError;
  }
}

}  // namespace corvane::cli
