#include "vmio/object.h"

#include "core/errors.h"
#include "core/text_match.h"

namespace vmio {
namespace {

const MemberTable kNoMembers{};

template <class Match>
const Member* FindIn(const MemberTable* table, MemberKind kind, Match matches) {
  for (; table; table = table->base) {
    for (const Member& m : table->members) {
      if (m.kind == kind && matches(m)) return &m;
    }
  }
  return nullptr;
}

}  // namespace

const Member* MemberTable::Find(std::string_view name, MemberKind kind) const {
  return FindIn(this, kind, [&](const Member& m) { return EqualsNoCase(m.name, name); });
}

const Member* MemberTable::Find(int32_t dispid, MemberKind kind) const {
  return FindIn(this, kind, [&](const Member& m) { return m.dispid == dispid; });
}

namespace {
// The address of a thread-local is unique among the threads alive at once, and cheaper to
// compare than a thread id.
const void* ThreadToken() {
  static thread_local const char token = 0;
  return &token;
}
}  // namespace

Object::Object() : owner_(ThreadToken()) {}

void Object::RequireOwnThread() const {
  if (owner_ != ThreadToken()) Raise(kWrongThread);
}

const MemberTable& Object::Members() const { return kNoMembers; }

Variant Object::Call(std::string_view member, std::span<const Variant> args) {
  const MemberTable& table = Members();
  const Member* found = table.Find(member, MemberKind::kMethod);
  if (!found) found = table.Find(member, MemberKind::kPropertyGet);
  if (!found) Raise(kMemberNotSupported);
  return Invoke(*found, args);
}

void Object::Put(std::string_view member, std::span<const Variant> args) {
  const Member* found = Members().Find(member, MemberKind::kPropertyPut);
  if (!found) Raise(kMemberNotSupported);
  Invoke(*found, args);
}

Variant Object::Invoke(const Member& member, std::span<const Variant> args) {
  RequireOwnThread();
  if (args.size() != member.param_count) Raise(kWrongArgumentCount);
  return member.invoke(*this, args);
}

}  // namespace vmio
