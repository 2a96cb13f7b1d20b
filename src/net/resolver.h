#pragma once
// Name resolution on an engine loop, starting no thread: the resolver's sockets and its
// retry timer are watched by the loop like any device's, so a look-up of a slow or missing
// name holds back nothing else on the thread. One per Io (io.Get<Resolver>()).
//
// POSIX only (c-ares underneath): on Windows the platform's HTTP transport resolves names
// itself, and the socket drivers take dotted addresses.
#include <memory>
#include <string>
#include <vector>

#include "engine/io.h"

namespace vmio {

class Resolver : public engine::Io::Service {
 public:
  explicit Resolver(engine::Io& io);
  ~Resolver() override;
  Resolver(const Resolver&) = delete;
  Resolver& operator=(const Resolver&) = delete;

  // The addresses of host as text (IPv4 dotted, IPv6 in brackets), in the resolver's order
  // (the hosts file, then DNS, as the system is set up); none when the name cannot be
  // resolved. A numeric address comes back as it is.
  engine::Task<std::vector<std::string>> Resolve(std::string host);

  struct State;

 private:
  std::unique_ptr<State> state_;
};

}  // namespace vmio
