// The concurrent engine through the C interface, against a fleet of simulated devices.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "capi_checks.h"
#include "fleet_sim.h"
#include "vmio/error.h"
#include "vmio/vmio.h"

namespace vmio {
namespace {

std::string Passed(const char* failure) { return failure ? failure : "passed"; }

TEST(CApiEngine, KeepsLiveDevicesFreshBesideDeadOnesFromAHostsPollLoop) {
  sim::FleetOptions options;
  options.devices = 12;
  options.adam = 3;  // one of the silent ones is a module
  options.silent = 2;
  options.unaccepting = 2;
  options.base = "127.250.0.1";  // apart from the ranges other tests pick
  sim::FleetSim fleet(options);
  fleet.Start();
  std::vector<const char*> classes, devices;
  std::vector<int> live;
  int camera = -1;
  for (const sim::FleetDevice& d : fleet.Devices()) {
    classes.push_back(d.progid.c_str());
    devices.push_back(d.device.c_str());
    live.push_back(d.health == sim::FleetHealth::Live);
    if (camera < 0 && live.back() && d.make == sim::FleetMake::Axis) camera = static_cast<int>(live.size()) - 1;
  }
  ASSERT_GE(camera, 0);
  EXPECT_EQ(Passed(CheckEngineThroughC(static_cast<int>(devices.size()), classes.data(), devices.data(), live.data(),
                                       camera)),
            "passed");
  EXPECT_EQ(fleet.Output(camera, 1), 1);  // the write reached the camera
}

TEST(CApiEngine, RefusesCallsFromAnotherThread) {
  vmio_engine* engine = nullptr;
  ASSERT_EQ(vmio_engine_new(&engine), 0);
  vmio_object* camera = nullptr;
  ASSERT_EQ(vmio_create("axis", &camera), 0);
  int32_t id = 0;
  ASSERT_EQ(vmio_engine_add(engine, camera, "127.0.0.1:9", nullptr, &id), 0);
  std::vector<std::string> seen;
  std::thread other([&] {
    int32_t state = 0;
    int64_t timeout = 0;
    int32_t another = 0;
    for (const int32_t number : {vmio_engine_state(engine, id, &state), vmio_engine_timeout(engine, &timeout),
                                 vmio_engine_run_until(engine, vmio_engine_now() + 10), vmio_engine_remove(engine, id),
                                 vmio_engine_add(engine, camera, "127.0.0.1:9", nullptr, &another)}) {
      seen.push_back(std::to_string(number) + " " + vmio_error_description());
    }
  });
  other.join();
  const std::string refused =
      std::to_string(kWrongThread) + " The application called an interface that was marshalled for a different thread.";
  EXPECT_EQ(seen, std::vector<std::string>(5, refused));
  int32_t state = -1;
  EXPECT_EQ(vmio_engine_state(engine, id, &state), 0);  // still whole on its own thread
  EXPECT_EQ(state, VMIO_STATE_CONNECTING);
  vmio_release(camera);
  vmio_engine_free(engine);
}

}  // namespace
}  // namespace vmio
