#include "core/LoudnessTargetCatalog.h"

#include <utility>

namespace corvane::LoudnessTargetCatalog {

namespace {

using Mode = LoudnessTargetMode;
using Source = LoudnessSource;

LoudnessTarget delivery(std::string id, std::string name, Mode mode, Source source,
                        float reference, float tolerance, float ceilingDBTP,
                        std::vector<LoudnessTargetItem> items = {}) {
  return LoudnessTarget{std::move(id), std::move(name), mode,        source,
                        reference,     tolerance,       ceilingDBTP, std::move(items)};
}

LoudnessTarget playback(std::string id, std::string name, float reference, float ceilingDBTP,
                        PlaybackGainPolicy policy) {
  return LoudnessTarget{std::move(id),  std::move(name), Mode::music,
                        Source::integrated, reference,  std::nullopt,
                        ceilingDBTP,    {PlaybackGainItem{policy}}};
}

// One table, grouped by mode in display order; targets(mode) hands out the mode's slice.
const std::vector<LoudnessTarget>& table() {
  static const std::vector<LoudnessTarget> entries = [] {
    std::vector<LoudnessTarget> t;

    // ---- Music / streaming: platforms that normalise at playback (no pass or fail) ----

    // Spotify for Artists, "Loudness normalization": tracks are played at -14 LUFS
    // (ITU BS.1770); loud masters are turned down, soft ones turned up only as far as a
    // 1 dB true-peak headroom allows; masters should stay below -1 dBTP.
    t.push_back(playback("music.spotify", "Spotify", -14.0f, -1.0f,
                         PlaybackGainPolicy::upLimitedByCeiling));
    // Apple, "Apple Digital Masters" (formerly Mastered for iTunes): Sound Check, on by
    // default, plays music at about -16 LUFS, and masters should leave headroom for the
    // overshoot of the AAC encode, which -1 dBTP gives. Apple does not say how far Sound
    // Check lifts a quiet master with high peaks; we assume it stops at the ceiling, as
    // Spotify documents.
    t.push_back(playback("music.appleMusic", "Apple Music", -16.0f, -1.0f,
                         PlaybackGainPolicy::upLimitedByCeiling));
    // YouTube's playback normalisation, as its "Stats for nerds" content-loudness figure
    // reports it: -14 LUFS reference, attenuation only; quieter uploads play as they are.
    // YouTube publishes no peak figure; -1 dBTP is the lossy-codec headroom AES TD1008
    // recommends for every stream.
    t.push_back(playback("music.youtube", "YouTube", -14.0f, -1.0f,
                         PlaybackGainPolicy::downOnly));

    // ---- Podcast / spoken word ----

    // Apple Podcasts for Creators, "Audio requirements": -16 LKFS ±1 dB integrated,
    // true peak not above -1 dBFS.
    t.push_back(delivery("podcast.applePodcasts", "Apple Podcasts", Mode::podcast,
                         Source::integrated, -16.0f, 1.0f, -1.0f));
    // AES TD1008.1.21-9, "Recommendations for Loudness of Internet Audio Streaming and
    // On-Demand Distribution": speech and mixed speech/music content at -18 LUFS ±2 LU,
    // maximum true peak -1 dBTP at the codec input.
    t.push_back(delivery("podcast.aesTD1008Speech", "AES TD1008 (speech)", Mode::podcast,
                         Source::integrated, -18.0f, 2.0f, -1.0f));
    // ACX (Audible), "Audio Submission Requirements": every file between -23 dB and -18 dB
    // RMS (the band's centre ±2.5 dB), peaks no higher than -3 dB, noise floor no higher
    // than -60 dB RMS. ACX checks the sample peak; we hold the true peak to -3 dB, which is
    // never below the sample peak, so a pass here passes ACX's own check.
    t.push_back(delivery("podcast.acx", "ACX (Audible)", Mode::podcast, Source::rms, -20.5f,
                         2.5f, -3.0f, {NoiseFloorItem{-60.0f}}));

    // ---- VOD: dialogue-anchored streaming video ----

    // Netflix, "Sound Mix Specifications & Best Practices": -27 LKFS ±2 LU
    // dialog-gated, peaks not above -2 dBTP. Programmes with less than 15 % dialogue are
    // measured over the full programme at -24 LKFS ±2 LU instead.
    t.push_back(delivery("vod.netflix", "Netflix", Mode::vod, Source::dialogGated, -27.0f, 2.0f,
                         -2.0f, {DialogueFallbackItem{15.0f, -24.0f, 2.0f}}));
    // Prime Video (Amazon Video Central) delivery specification for licensed content:
    // -24 LKFS ±2 LU dialog-gated, true peak not above -2 dBTP.
    t.push_back(delivery("vod.primeVideo", "Prime Video", Mode::vod, Source::dialogGated,
                         -24.0f, 2.0f, -2.0f));
    // Amazon Studios, "Delivery QC" for originals (near-field 5.1/2.0 mixes): -27 LKFS ±2 LU
    // with dialogue gating, maximum true peak -2 dBTP.
    t.push_back(delivery("vod.amazonStudios", "Amazon Studios Originals", Mode::vod,
                         Source::dialogGated, -27.0f, 2.0f, -2.0f));

    // ---- Broadcast ----

    // EBU R 128 (2020) with EBU Tech 3343: programme loudness -23.0 LUFS, deviation within
    // ±0.5 LU where exact normalisation is practical, maximum true peak -1 dBTP.
    t.push_back(delivery("broadcast.ebuR128", "EBU R128", Mode::broadcast, Source::integrated,
                         -23.0f, 0.5f, -1.0f));
    // EBU R 128 s1, "Loudness Parameters for Short-form Content" (adverts, promos,
    // trailers): R 128's level and peak, plus a maximum short-term loudness of -18 LUFS.
    // Kept apart from EBU R128 because a long programme may legitimately exceed -18 LUFS
    // short-term in its loudest scenes.
    t.push_back(delivery("broadcast.ebuR128ShortForm", "EBU R128 s1 (short-form)",
                         Mode::broadcast, Source::integrated, -23.0f, 0.5f, -1.0f,
                         {MaxShortTermItem{-18.0f}}));
    // ATSC A/85:2013, "Techniques for Establishing and Maintaining Audio Loudness for Digital
    // Television": -24 LKFS target, ±2 dB operational tolerance, true peak -2 dBTP.
    t.push_back(delivery("broadcast.atscA85", "ATSC A/85", Mode::broadcast, Source::integrated,
                         -24.0f, 2.0f, -2.0f));
    // ARIB TR-B32 (Japan), "Operational Guidelines for Loudness of Digital Television
    // Programs": -24 LKFS ±1 dB, true peak -1 dBTP.
    t.push_back(delivery("broadcast.aribTRB32", "ARIB TR-B32", Mode::broadcast,
                         Source::integrated, -24.0f, 1.0f, -1.0f));
    // Free TV Australia OP-59, "Measurement and Management of Loudness in Soundtracks for
    // Television Broadcasting": -24 LKFS ±1 LU, maximum true peak -2 dBTP.
    t.push_back(delivery("broadcast.freeTVOP59", "Free TV OP-59", Mode::broadcast,
                         Source::integrated, -24.0f, 1.0f, -2.0f));
    return t;
  }();
  return entries;
}

}  // namespace

std::span<const LoudnessTarget> allTargets() {
  return table();
}

std::span<const LoudnessTarget> targets(LoudnessTargetMode mode) {
  const auto& all = table();
  std::size_t first = 0;
  while (first < all.size() && all[first].mode != mode) ++first;
  std::size_t last = first;
  while (last < all.size() && all[last].mode == mode) ++last;
  return std::span<const LoudnessTarget>(all).subspan(first, last - first);
}

const LoudnessTarget* target(std::string_view id) {
  for (const auto& entry : table()) {
    if (entry.id == id) return &entry;
  }
  return nullptr;
}

std::vector<std::string> defaultSelectedIDs(LoudnessTargetMode mode) {
  switch (mode) {
    case LoudnessTargetMode::music:
      return {"music.spotify", "music.appleMusic", "music.youtube"};
    case LoudnessTargetMode::podcast:
      return {"podcast.applePodcasts", "podcast.aesTD1008Speech", "podcast.acx"};
    case LoudnessTargetMode::vod:
      return {"vod.netflix", "vod.primeVideo"};
    case LoudnessTargetMode::broadcast:
      return {"broadcast.ebuR128", "broadcast.atscA85"};
  }
  return {};
}

}  // namespace corvane::LoudnessTargetCatalog
