// Runs the C scenarios against simulated devices, through the shared library.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "axis_sim.h"
#include "capi_checks.h"
#include "logit_sim.h"
#include "support/sysfs_root.h"
#include "vmio/error.h"
#include "vmio/vmio.h"

namespace vmio {
namespace {

std::string Passed(const char* failure) { return failure ? failure : "passed"; }

TEST(CApi, DrivesACameraThroughEveryDeviceCall) {
  sim::AxisSimOptions options;
  options.auth = {sim::AuthScheme::Digest, "op", "p@s/s#w?r%41d"};  // reaches the camera as written
  sim::AxisSim camera(options);
  camera.Start();
  EXPECT_EQ(Passed(CheckCameraThroughC(camera.DeviceString().c_str())), "passed");
  EXPECT_EQ(camera.Points().Output(2), 1);
}

TEST(CApi, TraceShowsWhyAConnectFailed) {
  sim::AxisSimOptions options;
  options.auth = {sim::AuthScheme::Basic, "root", "right"};
  sim::AxisSim camera(options);
  camera.Start();
  std::string closed;
  {
    sim::AxisSim gone;
    gone.Start();
    closed = gone.DeviceString();
  }
  const std::string wrong = "root:wr@ng-S#cret/?@" + camera.Server().Authority();
  EXPECT_EQ(Passed(CheckFailureReasonsThroughC(wrong.c_str(), closed.c_str(), "wr@ng-S#cret/?")), "passed");
}

TEST(CApi, ListsAnEnumeratorsRecords) {
  sim::LogITSimOptions options;
  options.loggers.resize(2);
  sim::LogITSim loggers(options);
  test::SysfsRoot root(loggers.Root());
  EXPECT_EQ(Passed(CheckEnumeratorThroughC(loggers.DevicePath(0).c_str())), "passed");
}

TEST(CApi, AnObjectRefusesCallsFromOtherThreadsAndStaysUsableOnItsOwn) {
  sim::AxisSim camera;
  camera.Start();
  vmio_object* axis = nullptr;
  ASSERT_EQ(vmio_create("VMIO.Axis", &axis), 0);
  ASSERT_EQ(vmio_connect(axis, camera.DeviceString().c_str()), 0);
  std::vector<std::thread> readers;
  std::vector<std::string> seen(4);
  for (size_t t = 0; t < seen.size(); ++t) {
    readers.emplace_back([&, t] {
      for (int i = 0; i < 50; ++i) {
        vmio_value value{};
        const int32_t number = vmio_port_value(axis, 0, &value);
        seen[t] = std::to_string(number) + " " + vmio_error_description();
        if (number == 0) return;
      }
    });
  }
  for (std::thread& r : readers) r.join();
  for (const std::string& s : seen) {
    EXPECT_EQ(s, std::to_string(kWrongThread) +
                     " The application called an interface that was marshalled for a different thread.");
  }
  vmio_value value{};
  EXPECT_EQ(vmio_port_value(axis, 0, &value), 0);
  vmio_release(axis);
}

TEST(CApi, ReportsVersionClassesAndEvents) { EXPECT_EQ(Passed(CheckLibraryFunctionsThroughC()), "passed"); }

}  // namespace
}  // namespace vmio
