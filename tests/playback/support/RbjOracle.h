// The RBJ cookbook responses of the band filters, computed by scipy (data/rbj_response.py).
#pragma once

#include <cmath>
#include <complex>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace corvane::test {

inline std::vector<double> logGrid(double from, double to, int count) {
  std::vector<double> f;
  for (int i = 0; i < count; ++i) f.push_back(from * std::pow(to / from, i / double(count - 1)));
  return f;
}

// |H(f)| in dB of the cookbook design `form` ("bandpass", "notch", "peakcut"), one value per
// frequency; empty if the oracle could not run.
inline std::vector<double> rbjOracleDB(double fs, const std::string& form, double lo, double hi,
                                       const std::vector<double>& freqs) {
  const auto input = std::filesystem::temp_directory_path() /
                     ("corvane-rbj-" + std::to_string(::getpid()) + ".txt");
  {
    std::ofstream out(input);
    out.precision(17);
    for (double f : freqs) out << f << "\n";
  }
  char command[1024];
  std::snprintf(command, sizeof command, "/usr/bin/python3 %s/rbj_response.py %.17g %s %.17g %.17g < %s",
                CORVANE_TEST_DATA_DIR, fs, form.c_str(), lo, hi, input.c_str());
  FILE* pipe = popen(command, "r");
  std::vector<double> values;
  char line[128];
  while (pipe && std::fgets(line, sizeof line, pipe)) values.push_back(std::stod(line));
  if (pipe) pclose(pipe);
  std::filesystem::remove(input);
  return values;
}

// |H(f)| in dB of an impulse response, by direct DFT at each frequency.
inline std::vector<double> responseDB(const std::vector<float>& h, double fs, const std::vector<double>& freqs) {
  // The response has died away long before the end; the tail adds nothing but time.
  std::size_t length = h.size();
  while (length > 1 && std::fabs(h[length - 1]) < 1e-12f) --length;
  std::vector<double> db;
  for (double f : freqs) {
    std::complex<double> sum = 0.0;
    const std::complex<double> step = std::polar(1.0, -2.0 * M_PI * f / fs);
    std::complex<double> phasor = 1.0;
    for (std::size_t n = 0; n < length; ++n) {
      sum += double(h[n]) * phasor;
      phasor *= step;
      if ((n & 1023) == 1023) phasor /= std::abs(phasor);
    }
    db.push_back(20.0 * std::log10(std::abs(sum)));
  }
  return db;
}

}  // namespace corvane::test
