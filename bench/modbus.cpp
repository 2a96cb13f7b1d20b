// One coil read round trip (32 coils, function 1) against the simulated ADAM module: our
// Modbus/TCP client side by side with libmodbus's own client, against the same server.
#include <benchmark/benchmark.h>
#include <modbus/modbus.h>

#include <memory>

#include "adam_sim.h"
#include "net/modbus_t.h"

namespace {

vmio::sim::AdamSim& Module() {
  static const std::unique_ptr<vmio::sim::AdamSim> module = [] {
    auto m = std::make_unique<vmio::sim::AdamSim>(vmio::sim::AdamSimOptions{.model = "6050"});
    m->Start();
    m->Points().SetInput(4, true);
    return m;
  }();
  return *module;
}

void BM_ModbusT_ReadCoils(benchmark::State& state) {
  vmio::ModbusT modbus;
  modbus.Connect("127.0.0.1", static_cast<uint16_t>(Module().ModbusPort()));
  for (auto _ : state) {
    std::vector<uint8_t> coils = modbus.GetCoilData(0, 32);
    benchmark::DoNotOptimize(coils.data());
  }
}
BENCHMARK(BM_ModbusT_ReadCoils)->UseRealTime();

void BM_libmodbus_ReadBits(benchmark::State& state) {
  modbus_t* ctx = modbus_new_tcp("127.0.0.1", Module().ModbusPort());
  modbus_set_slave(ctx, 1);
  if (modbus_connect(ctx) != 0) {
    state.SkipWithError("modbus_connect failed");
    modbus_free(ctx);
    return;
  }
  uint8_t bits[32];
  for (auto _ : state) {
    if (modbus_read_bits(ctx, 0, 32, bits) != 32) state.SkipWithError("modbus_read_bits failed");
    benchmark::DoNotOptimize(bits);
  }
  modbus_close(ctx);
  modbus_free(ctx);
}
BENCHMARK(BM_libmodbus_ReadBits)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
