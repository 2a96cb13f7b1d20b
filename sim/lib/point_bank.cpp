#include "point_bank.h"

#include <stdexcept>

namespace vmio::sim {
namespace {

const char* KindName(PointKind kind) { return kind == PointKind::Input ? "input" : "output"; }

}  // namespace

void PointBank::Add(PointKind kind, std::string name) {
  if (name.empty()) {
    name = (kind == PointKind::Input ? "Input " : "Output ") + std::to_string(Count(kind) + 1);
  }
  std::lock_guard lock(mutex_);
  points_.push_back({kind, std::move(name)});
}

void PointBank::Add(PointKind kind, int count) {
  for (int n = 0; n < count; ++n) Add(kind);
}

int PointBank::Count(PointKind kind) const {
  std::lock_guard lock(mutex_);
  int n = 0;
  for (const Point& p : points_) n += p.kind == kind;
  return n;
}

const PointBank::Point& PointBank::At(PointKind kind, int number) const {
  int seen = 0;
  for (const Point& p : points_) {
    if (p.kind == kind && ++seen == number) return p;
  }
  throw std::out_of_range(std::string("no ") + KindName(kind) + " " + std::to_string(number));
}

const PointBank::Point& PointBank::Named(std::string_view name) const {
  for (const Point& p : points_) {
    if (p.name == name) return p;
  }
  throw std::out_of_range("no point " + std::string(name));
}

const std::string& PointBank::Name(PointKind kind, int number) const {
  std::lock_guard lock(mutex_);
  return At(kind, number).name;
}

int PointBank::Get(PointKind kind, int number) const {
  std::lock_guard lock(mutex_);
  return At(kind, number).value;
}

void PointBank::Set(PointKind kind, int number, int value) {
  std::lock_guard lock(mutex_);
  const_cast<Point&>(At(kind, number)).value = value;
}

int PointBank::Get(std::string_view name) const {
  std::lock_guard lock(mutex_);
  return Named(name).value;
}

void PointBank::Set(std::string_view name, int value) {
  std::lock_guard lock(mutex_);
  const_cast<Point&>(Named(name)).value = value;
}

std::string PointBank::Show(PointKind kind) const {
  std::lock_guard lock(mutex_);
  std::string line = std::string(KindName(kind)) + "s:";
  int n = 0;
  for (const Point& p : points_) {
    if (p.kind != kind) continue;
    line += " " + std::to_string(++n) + "=";
    line += p.value == 0 ? "off" : p.value == 1 ? "on" : std::to_string(p.value);
  }
  return line;
}

}  // namespace vmio::sim
