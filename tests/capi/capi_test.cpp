// Runs the C scenarios against simulated devices, through the shared library.
#include <gtest/gtest.h>

#include <string>

#include "axis_sim.h"
#include "capi_checks.h"
#include "logit_sim.h"
#include "support/sysfs_root.h"

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

TEST(CApi, ReportsVersionClassesAndEvents) { EXPECT_EQ(Passed(CheckLibraryFunctionsThroughC()), "passed"); }

}  // namespace
}  // namespace vmio
