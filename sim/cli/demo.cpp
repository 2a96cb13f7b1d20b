#include "demo.h"

#include <algorithm>
#include <iomanip>
#include <memory>
#include <stdexcept>
#include <string>

#include "credentials.h"
#include "value_text.h"
#include "vmio/error.h"
#include "vmio/objects.h"

namespace vmio::sim {
namespace {

using cli::DirectionName;
using cli::DisplayValue;
using cli::EscapeText;
using cli::FormatTypedValue;
using cli::MaskCredentials;
using cli::RedactCredentials;
using cli::TypeName;

constexpr size_t kLineWidth = 100;

// A check of the demo itself that did not hold (a value that did not read back).
struct DemoFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Outcome {
  std::string progid;
  bool ok = false;
  std::string summary;  // "4 ports, 4 reads, write checked", or the error
};

// Prints the entries separated by ";  ", wrapped at kLineWidth, each line indented.
void PrintWrapped(const std::vector<std::string>& entries, std::ostream& out) {
  const std::string indent(4, ' ');
  std::string line;
  for (const std::string& entry : entries) {
    if (!line.empty() && line.size() + 3 + entry.size() > kLineWidth - indent.size()) {
      out << indent << line << ";\n";
      line.clear();
    }
    line += (line.empty() ? "" : ";  ") + entry;
  }
  if (!line.empty()) out << indent << line << '\n';
}

// Lists what an enumerating class finds and returns the first entry's ID.
std::string FirstListed(std::string_view lister, std::ostream& out) {
  const std::shared_ptr<Object> list = CreateObject(lister);
  const int32_t count = list->Call("Count").AsInt32();
  out << "  " << lister << " lists " << count << (count == 1 ? " device:\n" : " devices:\n");
  for (int32_t k = 1; k <= count; ++k) {
    const Variant position[] = {Variant(k)};
    const std::shared_ptr<Object> record = list->Call("Item", position).AsObject();
    out << "    " << EscapeText(record->Call("ID").AsString()) << "  " << EscapeText(record->Call("Name").AsString())
        << '\n';
  }
  if (count == 0) throw DemoFailure(std::string(lister) + " lists no device");
  const Variant first[] = {Variant(int32_t{1})};
  return list->Call("Item", first).AsObject()->Call("ID").AsString();
}

// Runs one target; the step in progress names a failure.
Outcome RunTarget(const SimMake& target, std::ostream& out) {
  Outcome outcome;
  outcome.progid = target.progid;
  std::string device;
  std::string step = "starting the simulator";
  out << target.progid << '\n';
  try {
    const RunningDevice running = target.start();
    device = running.device;
    if (!target.lister.empty()) {
      step = "listing the devices with " + std::string(target.lister);
      device = FirstListed(target.lister, out);
    }
    step = "creating the object";
    const std::shared_ptr<Object> object = CreateObject(target.progid);  // released before the simulator
    if (target.prepare) {
      step = "preparing the object";
      target.prepare(*object);
    }
    auto* io = dynamic_cast<IODevice*>(object.get());
    if (!io) throw AutomationError(kMemberNotSupported);

    step = "connecting to " + MaskCredentials(device);
    io->Connect(device);
    step = "listing the ports";
    const int32_t count = io->Ports();
    std::vector<std::string> entries;
    // The first output that takes the value to write: the target's own, or a Boolean.
    const int32_t write_type = target.write.IsEmpty() ? vtBool : target.write.VarType();
    int32_t output = -1;
    for (int32_t i = 0; i < count; ++i) {
      const int32_t direction = io->PortDirection(i);
      const int32_t type = io->PortType(i);
      step = "reading port " + std::to_string(i);
      entries.push_back(std::to_string(i) + " " + EscapeText(io->PortName(i)) + " (" + DirectionName(direction) + ", " +
                        TypeName(type) + ") = " + DisplayValue(io->PortValue(i)));
      if (output < 0 && (direction == IOOutput || direction == IOBidirectional) && type == write_type) output = i;
    }
    out << "  connected to " << MaskCredentials(device) << ", " << count << (count == 1 ? " port" : " ports")
        << (count ? ":\n" : "\n");
    PrintWrapped(entries, out);

    std::string write = "no outputs";
    if (output >= 0) {
      step = "switching port " + std::to_string(output);
      const Variant before = io->PortValue(output);
      if (before.VarType() != write_type) {
        throw DemoFailure("port " + std::to_string(output) + " reads " + FormatTypedValue(before) + ", not a " +
                          TypeName(write_type));
      }
      const Variant wanted = target.write.IsEmpty() ? Variant(!before.AsBool()) : target.write;
      io->PortValue(output, wanted);
      const Variant after = io->PortValue(output);
      if (after != wanted) {
        throw DemoFailure("port " + std::to_string(output) + " reads " + DisplayValue(after) +
                          " after being switched to " + DisplayValue(wanted));
      }
      io->PortValue(output, before);
      out << "  switched port " << output << " (" << EscapeText(io->PortName(output)) << ") " << DisplayValue(before)
          << " -> " << DisplayValue(wanted) << ", read back " << DisplayValue(after) << ", switched back to "
          << DisplayValue(before) << '\n';
      write = "write checked";
    }
    step = "disconnecting";
    io->Disconnect();
    outcome.ok = true;
    outcome.summary = std::to_string(count) + (count == 1 ? " port, " : " ports, ") + std::to_string(count) +
                      (count == 1 ? " read, " : " reads, ") + write;
  } catch (const AutomationError& e) {
    outcome.summary = "error " + std::to_string(e.Number()) + ": " + e.Description();
  } catch (const std::exception& e) {
    outcome.summary = e.what();
  }
  if (!outcome.ok) {
    outcome.summary = "failed " + step + ": " + EscapeText(RedactCredentials(outcome.summary, device));
    out << "  " << outcome.summary << '\n';
  }
  return outcome;
}

}  // namespace

std::vector<SimMake> DemoTargets() {
  std::vector<SimMake> targets;
  for (const ClassInfo& c : Classes()) {
    if (const SimMake* make = FindMake(c.progid)) targets.push_back(*make);
  }
  return targets;
}

int RunDemo(std::span<const SimMake> targets, std::ostream& out) {
  if (targets.empty()) out << "no simulated devices are registered\n";
  std::vector<Outcome> outcomes;
  for (const SimMake& target : targets) {
    outcomes.push_back(RunTarget(target, out));
    out << '\n';
  }
  size_t width = 0;
  for (const Outcome& o : outcomes) width = std::max(width, o.progid.size());
  const auto failed = std::ranges::count_if(outcomes, [](const Outcome& o) { return !o.ok; });
  out << "summary:\n";
  for (const Outcome& o : outcomes)
    out << "  " << std::left << std::setw(static_cast<int>(width)) << o.progid << "  " << o.summary << '\n';
  out << outcomes.size() << (outcomes.size() == 1 ? " driver: " : " drivers: ") << outcomes.size() - failed
      << " passed, " << failed << " failed" << std::endl;
  return static_cast<int>(failed);
}

}  // namespace vmio::sim
