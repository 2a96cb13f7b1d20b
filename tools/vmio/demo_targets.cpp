#include "demo_targets.h"

#include <cstdlib>

#include "acti_sim.h"
#include "adam_sim.h"
#include "aviosys_sim.h"
#include "ax200_sim.h"
#include "axis_sim.h"
#include "genie_sim.h"
#include "serial_sim.h"
#include "stardot_sim.h"
#include "vivotek_sim.h"
#include "vmio/io_device.h"

namespace vmio::cli {

namespace {

// The access-control drivers find their service through VMIO_AX200, set here for this process.
std::shared_ptr<void> StartAx200(std::string& device) {
  auto service = std::make_shared<sim::Ax200Sim>();
  service->Start();
  setenv("VMIO_AX200", service->Address().c_str(), 1);
  device = "AX200";
  return service;
}

}  // namespace

// One entry per driver; add yours with the simulator it runs against.
static const DemoTarget kTargets[] = {
    {"VMIO.Axis",
     [](std::string& device) {
       sim::AxisSimOptions o;
       o.inputs = 4;
       o.outputs = 2;
       o.input_names = {{1, "Front door"}, {2, "Window"}};
       o.output_names = {{1, "Siren"}};
       o.auth = {sim::AuthScheme::Digest, "operator", "secret"};
       auto axis = std::make_shared<sim::AxisSim>(o);
       axis->Start();
       device = axis->DeviceString();
       return std::shared_ptr<void>(axis);
     }},
    {"VMIO.Vivotek",
     [](std::string& device) {
       sim::VivotekSimOptions o;
       o.inputs = 2;
       o.outputs = 2;
       o.auth = {sim::AuthScheme::Digest, "root", "pass"};
       auto vivotek = std::make_shared<sim::VivotekSim>(o);
       vivotek->Start();
       vivotek->SetInput(1, true);
       device = vivotek->DeviceString();
       return std::shared_ptr<void>(vivotek);
     }},
    {"VMIO.ACTi",
     [](std::string& device) {
       sim::ACTiSimOptions o;
       o.channels = 2;
       o.auth = {sim::AuthScheme::Basic, "Admin", "123456"};
       auto acti = std::make_shared<sim::ACTiSim>(o);
       acti->Start();
       acti->SetInput(2, 1, true);
       device = acti->DeviceString();
       return std::shared_ptr<void>(acti);
     }},
    {"VMIO.StarDot",
     [](std::string& device) {
       sim::StarDotSimOptions o;
       o.inputs = 1;
       auto stardot = std::make_shared<sim::StarDotSim>(o);
       stardot->Start();
       stardot->SetInput(1, true);
       device = stardot->DeviceString();
       return std::shared_ptr<void>(stardot);
     }},
    {"VMIO.Genie",
     [](std::string& device) {
       auto genie = std::make_shared<sim::GenieSim>();
       genie->Start();
       genie->SetState("GIS_SENSOR1", 1);
       device = genie->DeviceString();
       return std::shared_ptr<void>(genie);
     }},
    {"VMIO.AviosysPDU",
     [](std::string& device) {
       sim::AviosysSimOptions o;
       o.sockets = 4;
       o.names = {"Camera 1", "Camera 2", "Heater", "Lights"};
       o.auth = {sim::AuthScheme::Basic, "admin", "12345678"};
       auto pdu = std::make_shared<sim::AviosysSim>(o);
       pdu->Start();
       pdu->SetSocket(1, 1);
       device = pdu->DeviceString();
       return std::shared_ptr<void>(pdu);
     }},
    {"VMIO.ADAM",
     [](std::string& device) {
       // The driver asks for the model on UDP port 1025 of the module's address.
       auto adam = std::make_shared<sim::AdamSim>(sim::AdamSimOptions{.model = "6060", .udp_port = 1025});
       adam->Start();
       adam->SetInput(0, true);
       device = adam->DeviceString();
       return std::shared_ptr<void>(adam);
     }},
    {"VMIO.RS232",
     [](std::string& device) {
       // A line the instrument sent by itself waits in the port for the listening port.
       auto instrument = std::make_shared<sim::SerialSim>(sim::LineStart::Raw);
       instrument->Send("*B01:42.0\r\n");
       // Replies end in CR alone: an LF left behind would reach the listening port's buffer.
       instrument->SetReply("T?", {.text = "21.4\r"});
       device = instrument->Path();
       return std::shared_ptr<void>(instrument);
     },
     [](Object& rs232) {
       const Variant listener[] = {"\r\n"};     // port 0: the last line it sent by itself
       const Variant temperature[] = {"T?\r"};  // port 1: asked for
       rs232.Call("AddCommand", listener);
       rs232.Call("AddCommand", temperature);
     }},
    {"VMIO.AxxessIDDoor", &StartAx200, {}, Variant("Locked")},
    {"VMIO.AxxessIDSensor", &StartAx200},
};

std::span<const DemoTarget> DemoTargets() { return kTargets; }

}  // namespace vmio::cli
