#pragma once
// A simulated AX200 service with the default site, named in VMIO_AX200 for this process
// while it lives.
#include <cstdlib>

#include "ax200_sim.h"

namespace vmio::test {

struct Ax200Site {
  explicit Ax200Site(sim::Ax200SimOptions options = sim::DefaultAx200Site()) : sim(std::move(options)) {
    sim.Start();
    setenv("VMIO_AX200", sim.Address().c_str(), 1);
  }
  ~Ax200Site() { unsetenv("VMIO_AX200"); }

  sim::Ax200Sim sim;
};

}  // namespace vmio::test
