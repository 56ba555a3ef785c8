// Where the model is looked for, and what a missing or damaged model does.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <optional>

#include "SpeechTestSupport.h"
#include "headless/speech/Sha256.h"
#include "headless/speech/SileroVADAnalyser.h"

namespace corvane {
namespace {

// Sets an environment variable for the scope of a test and restores it after.
class ScopedEnvironment {
 public:
  ScopedEnvironment(const char* name, const std::optional<std::string>& value) : _name(name) {
    if (const char* old = std::getenv(name)) _old = old;
    if (value) setenv(name, value->c_str(), 1);
    else unsetenv(name);
  }
  ~ScopedEnvironment() {
    if (_old) setenv(_name, _old->c_str(), 1);
    else unsetenv(_name);
  }

 private:
  const char* _name;
  std::optional<std::string> _old;
};

std::vector<unsigned char> readBytes(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeBytes(const std::filesystem::path& path, const std::vector<unsigned char>& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

TEST(SileroVADModel, SearchOrderIsOverrideThenUserDataThenSystemData) {
  {
    ScopedEnvironment model(SileroVADModel::kPathVariable, "/somewhere/else.onnx");
    EXPECT_EQ(SileroVADModel::searchPaths(), std::vector<std::filesystem::path>{"/somewhere/else.onnx"});
  }
  ScopedEnvironment model(SileroVADModel::kPathVariable, std::nullopt);
  {
    ScopedEnvironment dataHome("XDG_DATA_HOME", "/data/home");
    ScopedEnvironment dataDirs("XDG_DATA_DIRS", "/opt/share:relative/ignored:/usr/share");
    const std::vector<std::filesystem::path> expected = {
        "/data/home/Corvane/models/silero_vad_op18_ifless.onnx",
        "/opt/share/Corvane/models/silero_vad_op18_ifless.onnx",
        "/usr/share/Corvane/models/silero_vad_op18_ifless.onnx"};
    EXPECT_EQ(SileroVADModel::searchPaths(), expected);
  }
  {
    ScopedEnvironment dataHome("XDG_DATA_HOME", std::nullopt);
    ScopedEnvironment dataDirs("XDG_DATA_DIRS", std::nullopt);
    ScopedEnvironment home("HOME", "/home/someone");
    const std::vector<std::filesystem::path> expected = {
        "/home/someone/.local/share/Corvane/models/silero_vad_op18_ifless.onnx",
        "/usr/local/share/Corvane/models/silero_vad_op18_ifless.onnx",
        "/usr/share/Corvane/models/silero_vad_op18_ifless.onnx"};
    EXPECT_EQ(SileroVADModel::searchPaths(), expected);
  }
}

TEST(SileroVADModel, TheFirstExistingPlaceWins) {
  const auto installed = test::installedModel();
  ASSERT_TRUE(installed);
  test::TemporaryFolder folder;
  const auto userData = folder / "user";
  const auto systemData = folder / "system";
  std::filesystem::create_directories(systemData / "Corvane" / "models");
  std::filesystem::copy_file(installed->path(), systemData / "Corvane" / "models" / SileroVADModel::kFileName);
  ScopedEnvironment model(SileroVADModel::kPathVariable, std::nullopt);
  ScopedEnvironment dataHome("XDG_DATA_HOME", userData.string());
  ScopedEnvironment dataDirs("XDG_DATA_DIRS", systemData.string());
  EXPECT_EQ(SileroVADModel::locate(), systemData / "Corvane" / "models" / SileroVADModel::kFileName);
  std::filesystem::create_directories(userData / "Corvane" / "models");
  std::filesystem::copy_file(installed->path(), userData / "Corvane" / "models" / SileroVADModel::kFileName);
  EXPECT_EQ(SileroVADModel::locate(), userData / "Corvane" / "models" / SileroVADModel::kFileName);
  EXPECT_TRUE(SileroVADModel::loadInstalled());
}

TEST(SileroVADModel, AMissingModelMakesTheDetectorUnavailableWithAClearText) {
  test::TemporaryFolder folder;
  {
    ScopedEnvironment model(SileroVADModel::kPathVariable, std::nullopt);
    ScopedEnvironment dataHome("XDG_DATA_HOME", (folder / "nothing").string());
    ScopedEnvironment dataDirs("XDG_DATA_DIRS", (folder / "none").string());
    try {
      SileroVADModel::locate();
      ADD_FAILURE() << "no model should be found";
    } catch (const SpeechModelError& error) {
      const std::string text = error.what();
      EXPECT_NE(text.find("Speech detection is unavailable"), std::string::npos) << text;
      EXPECT_NE(text.find((folder / "nothing").string()), std::string::npos) << text;
      EXPECT_NE(text.find("scripts/install-deps"), std::string::npos) << text;
    }
  }
  const SileroVADAnalyser analyser(folder / "absent.onnx");
  EXPECT_FALSE(analyser.isAvailable());
  EXPECT_NE(analyser.errorText().find("absent.onnx"), std::string::npos) << analyser.errorText();
  const std::vector<float> signal(48000, 0.1f);
  EXPECT_FALSE(analyser.speechHistory(signal, 48000, {}).has_value());
  EXPECT_THROW(analyser.detectSpeech(signal, 48000, {}), SpeechModelError);
}

TEST(SileroVADModel, ADamagedModelIsRefused) {
  const auto installed = test::installedModel();
  ASSERT_TRUE(installed);
  const auto bytes = readBytes(installed->path());
  test::TemporaryFolder folder;

  // Cut short, one weight changed by one bit, and not a model at all.
  auto truncated = bytes;
  truncated.resize(bytes.size() / 2);
  auto flipped = bytes;
  flipped[bytes.size() - 100000] ^= 0x01;
  const std::vector<unsigned char> text{'n', 'o', 't', ' ', 'o', 'n', 'n', 'x'};
  for (const auto& [name, content] : {std::pair{"truncated.onnx", truncated}, std::pair{"flipped.onnx", flipped},
                                      std::pair{"text.onnx", text}}) {
    SCOPED_TRACE(name);
    writeBytes(folder / name, content);
    const SileroVADAnalyser analyser(folder / name);
    EXPECT_FALSE(analyser.isAvailable());
    EXPECT_NE(analyser.errorText().find("is damaged or of another version"), std::string::npos) << analyser.errorText();
    EXPECT_FALSE(analyser.speechHistory(std::vector<float>(16000, 0.0f), 16000, {}).has_value());
  }
  // The override names a file that is not there: only that place is tried, and named.
  ScopedEnvironment model(SileroVADModel::kPathVariable, (folder / "gone.onnx").string());
  try {
    SileroVADModel::locate();
    ADD_FAILURE() << "the override names a missing file";
  } catch (const SpeechModelError& error) {
    EXPECT_NE(std::string(error.what()).find("gone.onnx"), std::string::npos);
    EXPECT_NE(std::string(error.what()).find(SileroVADModel::kPathVariable), std::string::npos);
  }
}

TEST(SileroVADModel, DigestAgreesWithSha256sum) {
  test::TemporaryFolder folder;
  // Lengths around the 56- and 64-byte padding boundaries, and the model file itself.
  for (const std::size_t length : {0u, 1u, 55u, 56u, 63u, 64u, 65u, 119u, 120u, 1000u}) {
    std::vector<unsigned char> bytes(length);
    for (std::size_t i = 0; i < length; ++i) bytes[i] = static_cast<unsigned char>(i * 37 + 11);
    const auto path = folder / ("bytes-" + std::to_string(length));
    writeBytes(path, bytes);
    test::run("sha256sum " + test::quoted(path) + " | cut -c1-64 > " + test::quoted(folder / "digest"));
    std::ifstream digest(folder / "digest");
    std::string expected;
    digest >> expected;
    EXPECT_EQ(sha256Hex(bytes), expected) << length << " bytes";
  }
  const auto installed = test::installedModel();
  ASSERT_TRUE(installed);
  EXPECT_EQ(sha256Hex(readBytes(installed->path())), SileroVADModel::kSHA256);
}

TEST(SileroVADModel, BothBranchesHaveSileroGeometry) {
  const auto model = test::installedModel();
  ASSERT_TRUE(model);
  EXPECT_EQ(model->branch16k().framesPerWindow(), 4);
  EXPECT_EQ(model->branch16k().stftBins, 129);
  EXPECT_EQ(model->branch8k().framesPerWindow(), 4);
  EXPECT_EQ(model->branch8k().stftBins, 65);
}

}  // namespace
}  // namespace corvane
