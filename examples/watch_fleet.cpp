// Keeps a list of devices fresh from one thread through vmio::Engine and reports once a
// second how they fare: watch_fleet LIST SECONDS [INTERVAL_MS]
//
// LIST has one "CLASS DEVICE" per line ('#' starts a comment), the form `vmio-sim fleet
// --list FILE` writes. Each report line gives the devices per state, the value changes and
// errors seen since the last line, and the process's resident memory and open descriptors.
#include <vmio/engine.h>
#include <vmio/objects.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

long ResidentKiB() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:")) return std::stol(line.substr(6));
  }
  return -1;
}

long OpenDescriptors() {
  long count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) count += !entry.is_directory();
  return count;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: " << argv[0] << " LIST SECONDS [INTERVAL_MS]\n";
    return 2;
  }
  std::ifstream list(argv[1]);
  if (!list) {
    std::cerr << "cannot read " << argv[1] << "\n";
    return 1;
  }
  const int64_t seconds = std::stoll(argv[2]);
  vmio::WatchOptions options;
  if (argc > 3) options.interval_ms = std::stoi(argv[3]);

  try {
    vmio::Engine engine;
    const long base_kib = ResidentKiB();
    const long base_fds = OpenDescriptors();
    std::string line;
    for (int number = 1; std::getline(list, line); ++number) {
      if (const size_t hash = line.find('#'); hash != std::string::npos) line.resize(hash);
      std::istringstream fields(line);
      std::string class_name, device;
      if (!(fields >> class_name)) continue;
      if (!(fields >> device)) {
        std::cerr << argv[1] << ":" << number << ": no device after the class\n";
        return 1;
      }
      engine.Add(vmio::CreateObject(class_name), device, options);
    }
    std::cout << engine.Devices().size() << " devices; before adding them: " << base_kib << " KiB resident, "
              << base_fds << " descriptors\n";

    const int64_t start = vmio::Engine::Now();
    long changes = 0, errors = 0;
    for (int64_t second = 1; second <= seconds; ++second) {
      engine.RunUntil(start + second * 1000);
      vmio::EngineEvent event;
      while (engine.NextEvent(event)) {
        changes += event.kind == vmio::EngineEvent::Kind::kValue;
        errors += event.kind == vmio::EngineEvent::Kind::kError;
      }
      int per_state[4] = {};
      for (const int32_t id : engine.Devices()) ++per_state[static_cast<int>(engine.State(id))];
      std::cout << "t=" << second << "s";
      for (int s = 0; s < 4; ++s)
        std::cout << ' ' << vmio::DeviceStateName(static_cast<vmio::DeviceState>(s)) << '=' << per_state[s];
      std::cout << " changes=" << changes << " errors=" << errors << " rss_kib=" << ResidentKiB()
                << " fds=" << OpenDescriptors() << std::endl;
      changes = errors = 0;
    }
  } catch (const vmio::AutomationError& e) {
    std::cerr << "error " << e.Number() << ": " << e.Description() << "\n";
    return 1;
  }
  return 0;
}
