#include "headless/speech/SileroVADModel.h"

#include <onnx/onnx_pb.h>  // defines ONNX_API, then includes onnx-ml.pb.h (ONNX_ML)
#include <pwd.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

#include "headless/speech/Sha256.h"

namespace corvane {
namespace {

const char* const kUnavailable = "Speech detection is unavailable: ";

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? std::string(value) : std::string();
}

std::filesystem::path homeDirectory() {
  const std::string home = environment("HOME");
  if (!home.empty()) return home;
  // A service or CI job may run without HOME; the password database still knows the folder.
  if (const passwd* entry = getpwuid(getuid()); entry && entry->pw_dir) return entry->pw_dir;
  return "/";
}

[[noreturn]] void fail(const std::string& text) { throw SpeechModelError(kUnavailable + text); }

// Initializers by name, as float arrays with their dimensions.
class TensorTable {
 public:
  explicit TensorTable(const onnx::GraphProto& graph, const std::filesystem::path& path) : _path(path) {
    for (const auto& tensor : graph.initializer()) _tensors.emplace(tensor.name(), &tensor);
  }

  // The float tensor `name` with exactly the dimensions `dims`.
  std::vector<float> take(const std::string& name, const std::vector<std::int64_t>& dims) const {
    const auto found = _tensors.find(name);
    if (found == _tensors.end()) wrongWeight(name);
    const onnx::TensorProto& tensor = *found->second;
    if (tensor.data_type() != onnx::TensorProto_DataType_FLOAT) wrongWeight(name);
    if (tensor.dims_size() != static_cast<int>(dims.size())) wrongWeight(name);
    std::size_t count = 1;
    for (int i = 0; i < tensor.dims_size(); ++i) {
      if (tensor.dims(i) != dims[static_cast<std::size_t>(i)]) wrongWeight(name);
      count *= static_cast<std::size_t>(dims[static_cast<std::size_t>(i)]);
    }
    std::vector<float> values(count);
    if (tensor.has_raw_data()) {
      // ONNX stores raw tensor data little-endian, as is every machine this builds for.
      if (tensor.raw_data().size() != count * sizeof(float)) wrongWeight(name);
      std::memcpy(values.data(), tensor.raw_data().data(), count * sizeof(float));
    } else {
      if (static_cast<std::size_t>(tensor.float_data_size()) != count) wrongWeight(name);
      std::copy(tensor.float_data().begin(), tensor.float_data().end(), values.begin());
    }
    for (const float v : values) {
      if (!std::isfinite(v)) wrongWeight(name);
    }
    return values;
  }

 private:
  [[noreturn]] void wrongWeight(const std::string& name) const {
    fail("the model file " + _path.string() + " lacks the weight " + name +
         " or holds it in another form.");
  }

  std::filesystem::path _path;
  std::map<std::string, const onnx::TensorProto*> _tensors;
};

SileroVADBranch readBranch(const TensorTable& table, const std::string& prefix, int sampleRate,
                           int windowSamples, int contextSamples, int stftKernel) {
  SileroVADBranch branch;
  branch.sampleRate = sampleRate;
  branch.windowSamples = windowSamples;
  branch.contextSamples = contextSamples;
  branch.stftKernel = stftKernel;
  branch.stftBins = stftKernel / 2 + 1;
  branch.stftBasis = table.take(prefix + ".stft.forward_basis_buffer",
                                {2 * branch.stftBins, 1, stftKernel});
  const int channels[5] = {branch.stftBins, 128, 64, 64, 128};
  const int strides[4] = {1, 2, 2, 1};
  for (int i = 0; i < 4; ++i) {
    SileroConvLayer& layer = branch.encoder[i];
    layer.inChannels = channels[i];
    layer.outChannels = channels[i + 1];
    layer.kernel = 3;
    layer.stride = strides[i];
    const std::string name = prefix + ".encoder." + std::to_string(i) + ".reparam_conv.";
    layer.weight = table.take(name + "weight", {layer.outChannels, layer.inChannels, layer.kernel});
    layer.bias = table.take(name + "bias", {layer.outChannels});
  }
  constexpr int h = SileroVADBranch::kHidden;
  branch.weightIH = table.take(prefix + ".decoder.rnn.weight_ih", {4 * h, h});
  branch.weightHH = table.take(prefix + ".decoder.rnn.weight_hh", {4 * h, h});
  branch.biasIH = table.take(prefix + ".decoder.rnn.bias_ih", {4 * h});
  branch.biasHH = table.take(prefix + ".decoder.rnn.bias_hh", {4 * h});
  branch.decoderWeight = table.take(prefix + ".decoder.decoder.2.weight", {1, h, 1});
  branch.decoderBias = table.take(prefix + ".decoder.decoder.2.bias", {1})[0];
  return branch;
}

}  // namespace

std::vector<std::filesystem::path> SileroVADModel::searchPaths() {
  const std::string overridePath = environment(kPathVariable);
  if (!overridePath.empty()) return {std::filesystem::path(overridePath)};

  std::vector<std::filesystem::path> paths;
  const std::filesystem::path relative = std::filesystem::path("Corvane") / "models" / kFileName;
  const std::string dataHome = environment("XDG_DATA_HOME");
  // The XDG rules ignore a relative path in these variables.
  if (!dataHome.empty() && dataHome.front() == '/') {
    paths.push_back(std::filesystem::path(dataHome) / relative);
  } else {
    paths.push_back(homeDirectory() / ".local" / "share" / relative);
  }
  std::string dataDirs = environment("XDG_DATA_DIRS");
  if (dataDirs.empty()) dataDirs = "/usr/local/share:/usr/share";
  std::stringstream dirs(dataDirs);
  for (std::string dir; std::getline(dirs, dir, ':');) {
    if (!dir.empty() && dir.front() == '/') paths.push_back(std::filesystem::path(dir) / relative);
  }
  return paths;
}

std::filesystem::path SileroVADModel::locate() {
  const auto paths = searchPaths();
  std::error_code error;
  for (const auto& path : paths) {
    if (std::filesystem::is_regular_file(path, error)) return path;
  }
  if (!environment(kPathVariable).empty()) {
    fail("there is no model file at " + paths.front().string() + " (set by " + kPathVariable + ").");
  }
  std::string places;
  for (const auto& path : paths) places += (places.empty() ? "" : ", ") + path.string();
  fail(std::string("the model file ") + kFileName + " is not installed (looked in " + places +
       "). Run scripts/install-deps to install it.");
}

std::shared_ptr<const SileroVADModel> SileroVADModel::load(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) fail("the model file " + path.string() + " could not be read.");
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (file.bad()) fail("the model file " + path.string() + " could not be read.");

  const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
  if (sha256Hex({data, bytes.size()}) != kSHA256) {
    fail("the model file " + path.string() +
         " is damaged or of another version (its SHA-256 is not the expected one). "
         "Run scripts/install-deps to install it again.");
  }

  onnx::ModelProto proto;
  if (!proto.ParseFromString(bytes)) fail("the model file " + path.string() + " is not a readable ONNX model.");
  const TensorTable table(proto.graph(), path);

  std::shared_ptr<SileroVADModel> model(new SileroVADModel());
  model->_path = path;
  model->_branch16k = readBranch(table, "model", 16000, 512, 64, 256);
  model->_branch8k = readBranch(table, "model_8k", 8000, 256, 32, 128);
  return model;
}

std::shared_ptr<const SileroVADModel> SileroVADModel::loadInstalled() { return load(locate()); }

}  // namespace corvane
