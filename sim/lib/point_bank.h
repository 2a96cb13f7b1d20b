#pragma once
// The points of a simulated device: its inputs (set by the wiring, here by tests and control
// lines) and its outputs (switched by the driver, or locally). Every make keeps its states
// here, numbered from 1 within their kind, under one lock, so that the request handlers and
// the hand at the terminal never race.
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace vmio::sim {

enum class PointKind { Input, Output };

class PointBank {
 public:
  // Set-up, before the device serves: adds the next point of a kind, with a name the device
  // reports (empty: "Input N" / "Output N").
  void Add(PointKind kind, std::string name = {});
  void Add(PointKind kind, int count);

  int Count(PointKind kind) const;
  int Inputs() const { return Count(PointKind::Input); }
  int Outputs() const { return Count(PointKind::Output); }
  const std::string& Name(PointKind kind, int number) const;

  // States by 1-based number, as the number the device reports (1 on, 0 off, or another value
  // some devices use); std::out_of_range outside the points. Thread-safe.
  int Get(PointKind kind, int number) const;
  void Set(PointKind kind, int number, int value);
  int Input(int number) const { return Get(PointKind::Input, number); }
  int Output(int number) const { return Get(PointKind::Output, number); }
  void SetInput(int number, int value) { Set(PointKind::Input, number, value); }
  void SetOutput(int number, int value) { Set(PointKind::Output, number, value); }

  // A point by its name, for devices that address states by key.
  int Get(std::string_view name) const;
  void Set(std::string_view name, int value);

  // "inputs: 1=on 2=off", "outputs: ..." (numbers other than 0 and 1 as they are).
  std::string Show(PointKind kind) const;

 private:
  struct Point {
    PointKind kind;
    std::string name;
    int value = 0;
  };
  const Point& At(PointKind kind, int number) const;
  const Point& Named(std::string_view name) const;

  mutable std::mutex mutex_;
  std::vector<Point> points_;  // in the order added; the set does not change once serving
};

}  // namespace vmio::sim
