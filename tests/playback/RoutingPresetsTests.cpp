// Routing presets: which built-ins a file and device are offered, what applying one does to the
// matrix (worked out by hand from the downmix equations), and the user's presets through save,
// export, re-import and a restart of the store, with the words the preset bar shows.
#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimeZone>
#include <cmath>
#include <memory>

#include "core/ChannelOrder.h"
#include "playback/RoutingPresets.h"
#include "session/SettingsStore.h"

namespace corvane {
namespace {

std::vector<std::string> idsOf(const std::vector<RoutingPreset>& presets) {
  std::vector<std::string> ids;
  for (const auto& p : presets) ids.push_back(p.id);
  return ids;
}

ChannelRoutings routingOf(int fileChannels, int deviceChannels) {
  const std::vector<std::string> labels;
  return defaultRoutings(fileChannels, deviceChannels, labels);
}

// (source, gain dB rounded to 0.01, phase) of every slot of an output.
struct Slot {
  int source;
  double gainDB;
  RoutingPhase phase;
  bool operator==(const Slot&) const = default;
};
std::vector<Slot> slotsOf(const ChannelRoutingEntry& entry) {
  std::vector<Slot> result;
  for (const auto& s : entry.sources) {
    result.push_back({s.sourceChannelIndex, std::round(20.0 * std::log10(s.gain) * 100.0) / 100.0, s.phase});
  }
  return result;
}
const Slot kSilent{-1, 0.0, RoutingPhase::inPhase};

TEST(RoutingPresets, BuiltInsAreOfferedByChannelCountsAndTheSevenOneOrder) {
  const std::vector<std::string> stereoOnStereo{"default-identity", "basic-lr", "basic-mono-l", "basic-mix-lr",
                                                "basic-swap"};
  EXPECT_EQ(idsOf(RoutingPreset::available(2, 2, false)), stereoOnStereo);
  // A mono file: what needs a second source channel is not offered; "Mono L" needs two outputs.
  EXPECT_EQ(idsOf(RoutingPreset::available(1, 2, false)), (std::vector<std::string>{"default-identity", "basic-mono-l"}));
  EXPECT_EQ(idsOf(RoutingPreset::available(1, 1, false)), (std::vector<std::string>{"default-identity"}));
  // 5.1 on a mono device: only what takes one device channel, the mono fold-down among them.
  EXPECT_EQ(idsOf(RoutingPreset::available(6, 1, false)),
            (std::vector<std::string>{"default-identity", "downmix-5.1-mono"}));
  const std::vector<std::string> fiveOneOnStereo{"default-identity", "basic-lr", "basic-mono-l", "basic-mix-lr",
                                                 "basic-swap", "downmix-5.1-lo-ro", "downmix-5.1-mono",
                                                 "test-surround-solo", "test-center-lfe-solo"};
  EXPECT_EQ(idsOf(RoutingPreset::available(6, 2, false)), fiveOneOnStereo);
  // 7.1 in its order: the 7.1 downmixes join, "7.1 → 5.1" only on six outputs.
  const auto sevenOneStereo = idsOf(RoutingPreset::available(8, 2, true));
  EXPECT_EQ(std::count(sevenOneStereo.begin(), sevenOneStereo.end(), "downmix-7.1-lo-ro"), 1);
  EXPECT_EQ(std::count(sevenOneStereo.begin(), sevenOneStereo.end(), "downmix-7.1-to-5.1"), 0);
  const auto sevenOneSix = idsOf(RoutingPreset::available(8, 6, true));
  EXPECT_EQ(std::count(sevenOneSix.begin(), sevenOneSix.end(), "downmix-7.1-to-5.1"), 1);
  EXPECT_EQ(sevenOneSix.size(), 11u);
  // Eight channels in another order: no 7.1 preset, whatever the device.
  const std::vector<std::string> otherOrder{"L", "R", "Lss", "Rss", "C", "LFE", "Ls", "Rs"};
  const bool canonical = ChannelOrder::is71SMPTEOrdered(otherOrder);
  EXPECT_FALSE(canonical);
  const auto other = idsOf(RoutingPreset::available(8, 6, canonical));
  EXPECT_EQ(std::count(other.begin(), other.end(), "downmix-7.1-lo-ro"), 0);
  EXPECT_EQ(std::count(other.begin(), other.end(), "downmix-7.1-to-5.1"), 0);
  const std::vector<std::string> smpte{"L", "R", "C", "LFE", "Ls", "Rs", "Lss", "Rss"};
  EXPECT_TRUE(ChannelOrder::is71SMPTEOrdered(smpte));
}

TEST(RoutingPresets, ApplyingRewritesTheWholeMatrix) {
  // BS.775 Lo/Ro: Lo = L + C·-3 dB + Ls·-3 dB, Ro = R + C·-3 dB + Rs·-3 dB; LFE dropped.
  ChannelRoutings routings = routingOf(6, 2);
  EXPECT_TRUE(RoutingPreset::byID("downmix-5.1-lo-ro")->apply(routings, 6));
  EXPECT_EQ(slotsOf(routings[0]), (std::vector<Slot>{{0, 0.0, RoutingPhase::inPhase},
                                                      {2, -3.0, RoutingPhase::inPhase},
                                                      {4, -3.0, RoutingPhase::inPhase}}));
  EXPECT_EQ(slotsOf(routings[1]), (std::vector<Slot>{{1, 0.0, RoutingPhase::inPhase},
                                                      {2, -3.0, RoutingPhase::inPhase},
                                                      {5, -3.0, RoutingPhase::inPhase}}));
  EXPECT_FLOAT_EQ(routings[0].sources[1].gain, 0.70794576f);
  // Output labels and entry ids stay; applying the same preset again changes nothing.
  const ChannelRoutings applied = routings;
  EXPECT_FALSE(RoutingPreset::byID("downmix-5.1-lo-ro")->apply(routings, 6));
  EXPECT_EQ(routings[0].id, applied[0].id);

  // 7.1 → 5.1 on six outputs: every output is written, none keeps the identity it had.
  ChannelRoutings six = routingOf(8, 6);
  RoutingPreset::byID("downmix-7.1-to-5.1")->apply(six, 8);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(slotsOf(six[i]), (std::vector<Slot>{{i, 0.0, RoutingPhase::inPhase}}));
  EXPECT_EQ(slotsOf(six[4]), (std::vector<Slot>{{4, 0.0, RoutingPhase::inPhase}, {6, -3.0, RoutingPhase::inPhase}}));
  EXPECT_EQ(slotsOf(six[5]), (std::vector<Slot>{{5, 0.0, RoutingPhase::inPhase}, {7, -3.0, RoutingPhase::inPhase}}));

  // "Default" for a stereo file on six outputs: 0 and 1 routed, 2 to 5 silent placeholders.
  ChannelRoutings wide = routingOf(2, 6);
  RoutingPreset::byID("basic-swap")->apply(wide, 2);
  RoutingPreset::byID("default-identity")->apply(wide, 2);
  EXPECT_EQ(slotsOf(wide[0]), (std::vector<Slot>{{0, 0.0, RoutingPhase::inPhase}}));
  EXPECT_EQ(slotsOf(wide[1]), (std::vector<Slot>{{1, 0.0, RoutingPhase::inPhase}}));
  for (int i = 2; i < 6; ++i) EXPECT_EQ(slotsOf(wide[i]), (std::vector<Slot>{kSilent}));

  // "5.1 → Mono" on a mono device: its second route has no output and is skipped.
  ChannelRoutings mono = routingOf(6, 1);
  RoutingPreset::byID("downmix-5.1-mono")->apply(mono, 6);
  ASSERT_EQ(mono.size(), 1u);
  EXPECT_EQ(mono[0].sources.size(), 5u);

  // Routes whose every source lies beyond the file leave the silent slot, never an empty list;
  // outputs beyond the routing are skipped.
  ChannelRoutings two = routingOf(2, 2);
  applyPresetRoutes(two, {PresetRoute{0, {PresetSource{5, 0.0f}, PresetSource{-2, 0.0f}}}, PresetRoute{7, {PresetSource{0, 0.0f}}}},
                    2);
  EXPECT_EQ(slotsOf(two[0]), (std::vector<Slot>{kSilent}));
  EXPECT_EQ(slotsOf(two[1]), (std::vector<Slot>{kSilent}));
}

class UserPresets : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(folder.isValid());
    settings = std::make_unique<SettingsStore>(folder.filePath("settings.ini"));
  }
  QTemporaryDir folder;
  std::unique_ptr<SettingsStore> settings;
};

TEST_F(UserPresets, SavedExportedAndReimportedWithoutDuplicates) {
  UserPresetStore store(*settings);
  QSignalSpy changed(&store, &UserPresetStore::presetsChanged);
  // A 5.1 file on a stereo device: a custom fold-down with a polarity flip and a muted output.
  ChannelRoutings routings = routingOf(6, 3);
  routings[0].sources = {ChannelSourceSlot{RoutingId::create(), 0, 1.0f, RoutingPhase::inPhase},
                         ChannelSourceSlot{RoutingId::create(), 2, 0.5f, RoutingPhase::invert}};
  routings[1].sources = {ChannelSourceSlot{RoutingId::create(), 1, 0.0f, RoutingPhase::plus90}};
  routings[2].sources = {ChannelSourceSlot{RoutingId::create(), -1, 1.0f, RoutingPhase::inPhase}};

  EXPECT_FALSE(store.save("   ", routings, 6));
  EXPECT_EQ(changed.count(), 0);
  const auto id = store.save("  Client fold-down ", routings, 6);
  ASSERT_TRUE(id);
  ASSERT_EQ(store.presets().size(), 1u);
  const UserPreset saved = store.presets().front();
  EXPECT_EQ(saved.name, "Client fold-down");
  EXPECT_EQ(saved.fileChannels, 6);
  EXPECT_EQ(saved.deviceChannels, 3);
  EXPECT_LE(std::abs(saved.createdAt.secsTo(QDateTime::currentDateTimeUtc())), 5);
  ASSERT_EQ(saved.routes.size(), 3u);
  EXPECT_NEAR(saved.routes[0].sources[1].gainDB, -6.0206, 1e-3);  // 20·log10(0.5)
  EXPECT_EQ(saved.routes[0].sources[1].phase, RoutingPhase::invert);
  EXPECT_FLOAT_EQ(saved.routes[1].sources[0].gainDB, -80.0f);  // a gain of 0 saves as -80 dB
  EXPECT_TRUE(saved.routes[2].sources.empty());                // a silent output: no sources

  // Offered only for the very counts it was saved with.
  EXPECT_EQ(store.applicable(6, 3).size(), 1u);
  EXPECT_TRUE(store.applicable(6, 2).empty());
  EXPECT_TRUE(store.applicable(2, 3).empty());

  // Applied to a fresh routing it gives back the sound it was saved from.
  ChannelRoutings fresh = routingOf(6, 3);
  saved.apply(fresh, 6);
  EXPECT_EQ(slotsOf(fresh[0]), (std::vector<Slot>{{0, 0.0, RoutingPhase::inPhase}, {2, -6.02, RoutingPhase::invert}}));
  EXPECT_EQ(slotsOf(fresh[1]), (std::vector<Slot>{{1, -80.0, RoutingPhase::plus90}}));
  EXPECT_EQ(slotsOf(fresh[2]), (std::vector<Slot>{kSilent}));

  // A restart reads it back from the settings.
  const QByteArray exported = UserPresetStore::encode(store.presets());
  UserPresetStore reopened(*settings);
  ASSERT_EQ(reopened.presets().size(), 1u);
  EXPECT_EQ(reopened.presets().front(), saved);

  // The exchange file: pretty printed, keys sorted, the UUID in capitals.
  const QString text = QString::fromUtf8(exported);
  EXPECT_TRUE(text.contains("\n    \"presets\": ["));
  EXPECT_TRUE(text.contains(saved.id.toString(QUuid::WithoutBraces).toUpper()));
  const QStringList keyOrder{"\"createdAt\"", "\"deviceChannels\"", "\"fileChannels\"", "\"id\"", "\"name\"", "\"routes\""};
  for (int k = 1; k < keyOrder.size(); ++k) EXPECT_LT(text.indexOf(keyOrder[k - 1]), text.indexOf(keyOrder[k]));
  EXPECT_LT(text.indexOf("\"presets\""), text.indexOf("\"version\": 1"));

  // Importing the store's own export adds nothing; into an empty store it adds the one preset.
  EXPECT_EQ(store.importJSON(exported), 0);
  EXPECT_EQ(store.presets().size(), 1u);
  QTemporaryDir other;
  SettingsStore otherSettings(other.filePath("settings.ini"));
  UserPresetStore elsewhere(otherSettings);
  EXPECT_EQ(elsewhere.importJSON(exported), 1);
  EXPECT_EQ(elsewhere.importJSON(exported), 0);
  ASSERT_EQ(elsewhere.presets().size(), 1u);
  EXPECT_EQ(elsewhere.presets().front(), saved);

  // Rename and delete, both stored.
  EXPECT_FALSE(store.rename(*id, "  "));
  EXPECT_TRUE(store.rename(*id, " House 5.1 "));
  EXPECT_EQ(UserPresetStore(*settings).presets().front().name, "House 5.1");
  EXPECT_TRUE(store.remove(*id));
  EXPECT_FALSE(store.remove(*id));
  EXPECT_TRUE(UserPresetStore(*settings).presets().empty());
}

TEST_F(UserPresets, AFileWrittenElsewhereIsReadWithItsOlderPolarityKey) {
  // As another machine's export would hold it: no "phase", the older polarity flag instead.
  const QByteArray file = R"({
    "version": 1,
    "presets": [{
      "id": "8d3f41c2-9a1e-4c55-8f0b-2b6f0b1d9e11",
      "name": "Flip R",
      "fileChannels": 2, "deviceChannels": 2,
      "createdAt": "2024-03-01T10:20:30Z",
      "routes": [
        {"outChannelIndex": 0, "sources": [{"sourceChannelIndex": 0, "gainDB": 0}]},
        {"outChannelIndex": 1, "sources": [{"sourceChannelIndex": 1, "gainDB": -6, "polarityInverted": true},
                                           {"sourceChannelIndex": 0, "gainDB": -12, "polarityInverted": false}]}
      ]
    }]
  })";
  UserPresetStore store(*settings);
  ASSERT_EQ(store.importJSON(file), 1);
  const UserPreset& preset = store.presets().front();
  EXPECT_EQ(preset.id, QUuid::fromString(QStringLiteral("8D3F41C2-9A1E-4C55-8F0B-2B6F0B1D9E11")));
  EXPECT_EQ(preset.createdAt, QDateTime(QDate(2024, 3, 1), QTime(10, 20, 30), QTimeZone::utc()));
  EXPECT_EQ(preset.routes[0].sources[0].phase, RoutingPhase::inPhase);
  EXPECT_EQ(preset.routes[1].sources[0].phase, RoutingPhase::invert);
  EXPECT_EQ(preset.routes[1].sources[1].phase, RoutingPhase::inPhase);
  // Written back, the phase goes out under its own key only.
  const QString encoded = QString::fromUtf8(UserPresetStore::encode(store.presets()));
  EXPECT_FALSE(encoded.contains("polarityInverted"));
  EXPECT_TRUE(encoded.contains("\"phase\": 180"));
  EXPECT_TRUE(encoded.contains("\"createdAt\": \"2024-03-01T10:20:30Z\""));

  // Anything else fails whole and leaves the store as it was.
  for (const QByteArray& bad : {QByteArray("not json"), QByteArray(R"({"version": 1})"),
                                QByteArray(R"({"version": 1, "presets": [{"id": "x"}]})"),
                                QByteArray(file).replace("\"gainDB\": -6, \"polarityInverted\": true", "\"gainDB\": -6, \"phase\": 45")}) {
    EXPECT_THROW(store.importJSON(bad), RoutingPresetsFileError) << bad.toStdString();
  }
  EXPECT_EQ(store.presets().size(), 1u);
  try {
    store.importJSON("[]");
    ADD_FAILURE() << "a JSON list was taken for a presets file";
  } catch (const RoutingPresetsFileError& e) {
    EXPECT_TRUE(QString::fromUtf8(e.what()).startsWith("The file is not a routing presets file Corvane can read"));
  }

  // Stored bytes that don't decode count as no presets.
  settings->writeJson(SettingsKey::routingUserPresets, QJsonDocument::fromJson(R"({"presets": 3})"));
  EXPECT_TRUE(UserPresetStore(*settings).presets().empty());
}

TEST(RoutingPresetTexts, TheWordsOfTheBarAndItsDialogs) {
  const auto& all = RoutingPreset::all();
  ASSERT_EQ(all.size(), 11u);
  EXPECT_EQ(all[0].name, "Default");
  EXPECT_EQ(all[3].name, "L+R \u2192 Both");
  EXPECT_EQ(all[5].description,
            "ITU-R BS.775 stereo downmix. Lo = L + (-3 dB)\u00B7C + (-3 dB)\u00B7Ls. Ro = R + (-3 dB)\u00B7C + "
            "(-3 dB)\u00B7Rs. LFE is dropped.");
  EXPECT_EQ(all[10].name, "C/LFE solo");
  EXPECT_EQ(all[10].description, "Send only Center and LFE to the stereo outputs.");
  EXPECT_EQ(std::count_if(all.begin(), all.end(), [](const RoutingPreset& p) { return p.isIdentity; }), 1);

  UserPreset preset;
  preset.name = "Client fold-down";
  preset.fileChannels = 6;
  preset.deviceChannels = 2;
  EXPECT_EQ(userPresetToolTip(preset),
            "Client fold-down: saved for 6 ch source to 2 ch output. Click to apply. Right-click for rename / delete "
            "/ export.");
  EXPECT_EQ(userPresetNameSuggestion(6, 2), "5.1 to Stereo");
  EXPECT_EQ(userPresetNameSuggestion(8, 7), "7.1 to 7 ch");
  EXPECT_EQ(userPresetExportFileName(preset), "Client fold-down.json");
  EXPECT_EQ(routing_preset_text::kExportAllFileName, "Corvane Routing Presets.json");
  EXPECT_EQ(routing_preset_text::kNothingImported,
            "No new presets imported (every preset in the file is already in your library).");
}

}  // namespace
}  // namespace corvane
