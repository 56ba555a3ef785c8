#include "support/JackTestServer.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace corvane::test {

namespace {

bool serverAnswers() {
  jack_status_t status;
  jack_client_t* client = jack_client_open("corvane-test-probe", JackNoStartServer, &status);
  if (!client) return false;
  jack_client_close(client);
  return true;
}

void silentJackError(const char*) {}

constexpr int kNameSlots = 6;

// Waits (up to a minute) for a free slot of the name pool and returns its locked descriptor.
int lockNameSlot(int& slot) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  for (;;) {
    for (slot = 0; slot < kNameSlots; ++slot) {
      const std::string path = "/tmp/corvane-jack-test-slot-" + std::to_string(slot) + ".lock";
      const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
      if (fd < 0) continue;
      if (flock(fd, LOCK_EX | LOCK_NB) == 0) return fd;
      close(fd);
    }
    if (std::chrono::steady_clock::now() > deadline) {
      throw std::runtime_error("no free JACK test server name within 60 s");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

}  // namespace

JackTestServer::JackTestServer(unsigned rate, unsigned period, const std::string& suffix)
    : _rate(rate) {
  int slot = 0;
  _slotLock = lockNameSlot(slot);
  _name = "corvane-test-" + std::to_string(slot) + suffix;
  setenv("JACK_DEFAULT_SERVER", _name.c_str(), 1);
  // libjack prints "Cannot connect to server socket" on every probe before the server is up.
  jack_set_error_function(&silentJackError);
  const std::string rateText = std::to_string(rate);
  const std::string periodText = std::to_string(period);
  _pid = fork();
  if (_pid < 0) throw std::runtime_error("fork failed");
  if (_pid == 0) {
    // A test that crashes must not leave its server behind.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    const int devnull = open("/dev/null", O_WRONLY);
    if (devnull >= 0) {
      dup2(devnull, STDOUT_FILENO);
      dup2(devnull, STDERR_FILENO);
    }
    execlp("jackd", "jackd", "--no-realtime", "-n", _name.c_str(), "-d", "dummy", "-r",
           rateText.c_str(), "-p", periodText.c_str(), "-P", "8", "-C", "8", (char*)nullptr);
    _exit(127);
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!serverAnswers()) {
    int status = 0;
    if (waitpid(_pid, &status, WNOHANG) == _pid) {
      _pid = -1;
      close(_slotLock);
      throw std::runtime_error("jackd exited before it answered");
    }
    if (std::chrono::steady_clock::now() > deadline) {
      kill(_pid, SIGKILL);
      waitpid(_pid, nullptr, 0);
      _pid = -1;
      close(_slotLock);
      throw std::runtime_error("jackd did not answer within 10 s");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

JackTestServer::~JackTestServer() {
  if (_pid > 0) {
    kill(_pid, SIGTERM);
    // jackd can take over a second to go; a new server under the same name must wait for it.
    bool gone = false;
    for (int i = 0; i < 500 && !gone; ++i) {
      gone = waitpid(_pid, nullptr, WNOHANG) == _pid;
      if (!gone) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (!gone) {
      kill(_pid, SIGKILL);
      waitpid(_pid, nullptr, 0);
    }
  }
  // Released only once the process is gone, so the next holder of the name never meets it.
  if (_slotLock >= 0) close(_slotLock);
}

JackCaptureClient::JackCaptureClient(const std::string& clientName, int channels, double maxSeconds)
    : _name(clientName) {
  jack_status_t status;
  _client = jack_client_open(clientName.c_str(), JackNoStartServer, &status);
  if (!_client) throw std::runtime_error("cannot open JACK client " + clientName);
  _capacity = static_cast<std::size_t>(maxSeconds * jack_get_sample_rate(_client));
  for (int c = 0; c < channels; ++c) {
    const std::string port = "in_" + std::to_string(c + 1);
    _ports.push_back(jack_port_register(_client, port.c_str(), JACK_DEFAULT_AUDIO_TYPE,
                                        JackPortIsInput, 0));
    _data.emplace_back(_capacity, 0.0f);
  }
  jack_set_process_callback(_client, &JackCaptureClient::process, this);
  jack_on_shutdown(_client, [](void* self) { static_cast<JackCaptureClient*>(self)->_serverGone.store(true); }, this);
  if (jack_activate(_client) != 0) throw std::runtime_error("cannot activate " + clientName);
}

JackCaptureClient::~JackCaptureClient() {
  // A client whose server went away is dead; libjack crashes on a deactivate of it.
  if (_client && !_serverGone.load()) {
    jack_deactivate(_client);
    jack_client_close(_client);
  }
}

std::string JackCaptureClient::portName(int channel) const {
  return _name + ":in_" + std::to_string(channel + 1);
}

void JackCaptureClient::connectFrom(const std::string& sourcePort, int channel) {
  if (jack_connect(_client, sourcePort.c_str(), portName(channel).c_str()) != 0) {
    throw std::runtime_error("cannot connect " + sourcePort);
  }
}

void JackCaptureClient::arm() {
  _recorded.store(0, std::memory_order_release);
  _armed.store(true, std::memory_order_release);
}

void JackCaptureClient::disarm() { _armed.store(false, std::memory_order_release); }

std::vector<float> JackCaptureClient::channel(int channel) const {
  const std::size_t n = framesRecorded();
  const auto& data = _data[static_cast<std::size_t>(channel)];
  return std::vector<float>(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(n));
}

int JackCaptureClient::process(jack_nframes_t frames, void* opaque) {
  auto* self = static_cast<JackCaptureClient*>(opaque);
  if (!self->_armed.load(std::memory_order_acquire)) return 0;
  const std::size_t at = self->_recorded.load(std::memory_order_relaxed);
  const std::size_t n = std::min<std::size_t>(frames, self->_capacity - at);
  for (std::size_t c = 0; c < self->_ports.size(); ++c) {
    const auto* in = static_cast<const float*>(jack_port_get_buffer(self->_ports[c], frames));
    std::copy(in, in + n, self->_data[c].begin() + static_cast<std::ptrdiff_t>(at));
  }
  self->_recorded.store(at + n, std::memory_order_release);
  return 0;
}

JackLspCounts jackLspCounts(const std::string& serverName, const std::string& client) {
  JackLspCounts counts;
  const std::string command = "JACK_DEFAULT_SERVER='" + serverName + "' jack_lsp -p 2>/dev/null";
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return counts;
  char line[512];
  std::string port;
  while (std::fgets(line, sizeof line, pipe)) {
    std::string text(line);
    if (!text.empty() && text.back() == '\n') text.pop_back();
    if (text.rfind("\tproperties:", 0) == 0) {
      if (port.rfind(client + ":", 0) == 0) {
        if (text.find("input") != std::string::npos) ++counts.inputPorts;
        if (text.find("output") != std::string::npos) ++counts.outputPorts;
      }
    } else {
      port = text;
    }
  }
  pclose(pipe);
  return counts;
}

}  // namespace corvane::test
