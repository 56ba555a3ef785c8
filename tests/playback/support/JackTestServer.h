// A private JACK server on the dummy driver for playback tests, and a second JACK client that
// records what reaches its input ports.
//
// The server runs under a name of its own (`jackd -n NAME`), so parallel test runs and a
// user's own server never meet; JACK_DEFAULT_SERVER points every client of this process at it.
//
// Names come from a small pool ("corvane-test-<slot><suffix>"), each slot held by an flock for
// the server's life. JACK's shared registry has room for eight servers and reclaims an entry
// whose process died only when a server of the same name registers again: unique names would
// leak a slot for every jackd that had to be killed, until no server could start on the machine.
#pragma once

#include <gtest/gtest.h>
#include <jack/jack.h>
#include <sys/types.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace corvane::test {

class JackTestServer {
 public:
  // Starts `jackd --no-realtime -n <unique> -d dummy -r <rate> -p <period> -P 8 -C 8` and waits
  // until a client can connect; `suffix` tells apart two servers of one process. Points
  // JACK_DEFAULT_SERVER at it. Throws std::runtime_error if it does not come up.
  explicit JackTestServer(unsigned rate = 48000, unsigned period = 1024, const std::string& suffix = "");
  // Stops the server and waits for its process to end.
  ~JackTestServer();
  JackTestServer(const JackTestServer&) = delete;
  JackTestServer& operator=(const JackTestServer&) = delete;

  const std::string& name() const { return _name; }
  unsigned rate() const { return _rate; }

 private:
  std::string _name;
  unsigned _rate;
  pid_t _pid = -1;
  int _slotLock = -1;
};

// A test suite that shares one private server among its tests.
class OnJackServer : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { server = std::make_unique<JackTestServer>(); }
  static void TearDownTestSuite() { server.reset(); }
  static inline std::unique_ptr<JackTestServer> server;
};

// A JACK client with `channels` input ports ("in_1" ...) that records while armed.
class JackCaptureClient {
 public:
  // Throws std::runtime_error if the client cannot be opened.
  JackCaptureClient(const std::string& clientName, int channels, double maxSeconds = 30.0);
  ~JackCaptureClient();
  JackCaptureClient(const JackCaptureClient&) = delete;
  JackCaptureClient& operator=(const JackCaptureClient&) = delete;

  const std::string& clientName() const { return _name; }
  int channels() const { return static_cast<int>(_ports.size()); }
  std::string portName(int channel) const;  // "<client>:in_<channel + 1>"

  // Connects `sourcePort` (a full port name) to input `channel`.
  void connectFrom(const std::string& sourcePort, int channel);

  // Recording: frames are kept from arm() on, up to the capacity.
  void arm();
  void disarm();
  std::size_t framesRecorded() const { return _recorded.load(std::memory_order_acquire); }
  // A copy of what input `channel` recorded so far.
  std::vector<float> channel(int channel) const;

 private:
  static int process(jack_nframes_t frames, void* self);

  std::string _name;
  jack_client_t* _client = nullptr;
  std::vector<jack_port_t*> _ports;
  std::vector<std::vector<float>> _data;
  std::size_t _capacity;
  std::atomic<bool> _armed{false};
  std::atomic<bool> _serverGone{false};
  std::atomic<std::size_t> _recorded{0};
};

// Channel counts of JACK clients as `jack_lsp` reports them: the oracle for the device list.
// For each client, the number of its input ports (what it can play) and output ports.
struct JackLspCounts {
  int inputPorts = 0;
  int outputPorts = 0;
};
JackLspCounts jackLspCounts(const std::string& serverName, const std::string& client);

}  // namespace corvane::test
