// AudioFileModel: the loaded file as the session knows it, and the load that makes it.
//
// A plain value, copied freely; the audio itself is held by reference (pcmBuffer). The load
// (stage 1 of opening a file) decodes the whole file into one planar float buffer, puts the
// channels in canonical order, inspects the file's true identity and takes waveform peaks
// and clip regions. A failed load throws; the session then offers the raw-PCM road for any
// regular file of at least one byte (regularFileSize), with rawImportNote as its note.
//
// Thread class: the value and its derived values are plain; load() and describe() read files
// and may run on any thread (the session runs load() on a background task).
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/AudioBuffer.h"
#include "core/ChannelLayout.h"
#include "headless/files/AudioFileIdentity.h"
#include "headless/files/PCMEncoding.h"
#include "headless/files/RawPCMFormat.h"
#include "headless/files/WaveformPeaks.h"

namespace corvane {

struct AudioFileModel {
  std::filesystem::path url;
  std::string name;           // last path component without its extension
  double duration = 0.0;      // seconds: totalFrames / sampleRate
  double sampleRate = 0.0;    // Hz
  int channelCount = 0;
  // Bits per sample: the file's own (PCM, FLAC, ALAC), 24 where the file has no such figure
  // (lossy formats); raw files by encoding 8, 16, 24, 24, 32, 32, 64.
  int bitDepth = 24;
  // Display label: the identity's formatLabel, else the extension in capitals; raw files the
  // format's fileFormatLabel.
  std::string fileFormat;
  std::int64_t fileSize = 0;  // bytes; 0 if the size can't be read
  // Frames the file's header promises. A truncated file keeps the header's count here while
  // pcmBuffer->frameLength() holds what could be read.
  FrameCount totalFrames = 0;
  std::vector<ChannelPeaks> waveformPeaks;           // resolution 4096
  std::vector<WaveformPyramidLevel> waveformPyramid; // empty at load
  std::vector<ChannelClipRegions> clipRegions;       // threshold 0.9999
  SharedAudioBuffer pcmBuffer;                       // all samples, planar float
  std::optional<RawPCMFormat> rawFormat;             // set when read as raw PCM
  std::optional<PCMEncoding> pcmEncoding;            // the file's; absent for raw and lossy files
  std::optional<AudioFileIdentity> identity;         // absent for raw files

  // Below 1000 MB "%.1f MB", from there "%.2f GB" (1 MB = 1,048,576 bytes).
  std::string fileSizeFormatted() const;
  // From 1000 Hz "%.1f kHz", below that the whole number and " Hz".
  std::string sampleRateFormatted() const;
  // The layout of channelCount.
  ChannelLayout channelLayout() const;
  // ChannelOrder::displayShortNames of the buffer's positions when that names every channel,
  // else the labels of channelLayout().
  std::vector<std::string> channelLabels() const;
  // Raw: "<bits>-bit integer, declared" ("<bits>-bit float, declared" for f32 and f64); else
  // the identity's encodingName; else the label of pcmEncoding; else "32-bit float".
  std::string encodingLabel() const;
  // None unless the identity says the name lies. Then, for a file Save can rewrite:
  // "The file's header says <label>; its name says .<extension>. Save keeps it a <label>
  // file. Use Save As to write a <container>." (container: AudioContainer's name for the
  // extension, else the extension in capitals); otherwise: "The file's header says <label>;
  // its name says .<extension>. It can't be rewritten in place; Save As writes a new PCM
  // file."
  std::optional<std::string> formatHelp() const;

  // The model of an edited buffer: url, name, bitDepth, fileFormat, fileSize, rawFormat,
  // pcmEncoding and identity from `replacing`; rate, channels, frames and duration from the
  // buffer; peaks and clip regions anew; no pyramid.
  static AudioFileModel fromBuffer(SharedAudioBuffer buffer, const AudioFileModel& replacing);

  // This model brought up to date after an in-place edit that changed the samples of
  // `buffer` (the live buffer, or a new one of the same length) in [startFrame, endFrame) and
  // nothing else. Costs time in proportion to the edited stretch and the clipped runs at its
  // edges, not to the file:
  //   - pcmBuffer becomes `buffer`;
  //   - base peaks: the bins (of max(frames / 4096, 1) frames, as at load) that hold an edited
  //     frame are computed anew from the samples;
  //   - clip regions: the edit is widened to whole clipped runs on both sides (a run that
  //     reaches into the edit is rescanned whole, also its part outside), the regions inside
  //     are replaced by a scan of the widened stretch at `threshold`, the others kept;
  //   - pyramid: every level's bins that hold an edited frame are computed anew from the
  //     samples (not derived from the level below, so they hold exact values).
  // The range is clamped into the buffer. An empty range patches nothing but the buffer
  // pointer; a buffer without channels gives the model back unchanged. Channels that the
  // model or the buffer lacks are left alone.
  // The patch works on a copy of the model; on an expiring model (std::move(model).refreshed...)
  // it works in place and spares the copy of peaks and pyramid (tens of MB on long files).
  AudioFileModel refreshedAfterInPlaceEdit(SharedAudioBuffer buffer, FrameCount startFrame, FrameCount endFrame,
                                           float threshold) const&;
  AudioFileModel refreshedAfterInPlaceEdit(SharedAudioBuffer buffer, FrameCount startFrame, FrameCount endFrame,
                                           float threshold) &&;

  // Plain member-wise equality (the buffer by identity): the session notifies observers of
  // the loaded file only when it really changed.
  friend bool operator==(const AudioFileModel&, const AudioFileModel&) = default;

  struct Loaded;

  // Decodes the whole file (stage 1 of a load). With a raw format: RawPCMReader, the model
  // from the declaration, channels as they are. Without: AudioFileReader, then
  //   - a file whose format gives no sample rate or channels: AudioError(formatNotSupported);
  //   - more than AudioLoadLimits allows: AudioError(fileTooLarge);
  //   - a buffer that can't be allocated: AudioError(bufferCreationFailed);
  //   - one read of the whole length; if it gives fewer frames, reading goes on through a
  //     65,536-frame scratch buffer until the length is reached or a read gives nothing;
  //   - a failing read starts over from frame 0 with the other decoder (FFmpeg after
  //     libsndfile); if none can open the file: AudioError(formatNotSupported);
  //   - channels put in canonical order, peaks, clip regions, identity.
  // The decoder's own errors (AudioDecodeError: no file, a folder, empty, not audio) and the
  // raw reader's (RawPCMReadError) pass unchanged.
  static Loaded load(const std::filesystem::path& url, const std::optional<RawPCMFormat>& rawFormat = std::nullopt);

  // The decoding half of load() alone: the whole file as planar float in canonical channel
  // order, without model, peaks or clip regions (for `corvane measure` and pipelines that
  // only measure). Throws as load() does.
  static SharedAudioBuffer decode(const std::filesystem::path& url);

  // The model from the file's headers only, for `corvane info`: format, identity, frame
  // count, and a pcmBuffer of no frames that carries the canonical channel positions. No
  // peaks, no clip regions. Throws as load() does, but never reads the audio.
  static AudioFileModel describe(const std::filesystem::path& url);
};

struct AudioFileModel::Loaded {
  AudioFileModel model;
  SharedAudioBuffer buffer;
};

// The size of an existing regular file (symbolic links followed) of at least one byte; none
// for anything else (missing, a folder, a device, an empty file).
std::optional<std::int64_t> regularFileSize(const std::filesystem::path& url);

// For a name with an audio extension (isAudioFileExtension): "The file couldn't be read as
// <EXTENSION> audio; it may be damaged. If it is actually headerless PCM, declare the format
// below."; none otherwise.
std::optional<std::string> rawImportNote(const std::filesystem::path& url);

}  // namespace corvane
