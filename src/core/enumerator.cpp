#include "vmio/enumerator.h"

#include <algorithm>

#include "core/errors.h"
#include "core/text_match.h"

namespace vmio {
namespace {

constexpr Member kInfoMembers[] = {
    MemberOf<&IODeviceInfo::ID>("ID", MemberKind::kPropertyGet, 1),
    MemberOf<&IODeviceInfo::Name>("Name", MemberKind::kPropertyGet, 2),
};

constexpr Member kEnumeratorMembers[] = {
    MemberOf<&IODeviceEnumerator::Item>("Item", MemberKind::kPropertyGet, 0),
    MemberOf<&IODeviceEnumerator::Count>("Count", MemberKind::kPropertyGet, 1),
    MemberOf<&IODeviceEnumerator::NewEnum>("NewEnum", MemberKind::kPropertyGet, -4),
};

}  // namespace

const MemberTable IODeviceInfo::kMembers{kInfoMembers};
const MemberTable IODeviceEnumerator::kMembers{kEnumeratorMembers};

std::shared_ptr<IODeviceInfo> IODeviceEnumerator::Item(const Variant& vntIndexKey) const {
  if (vntIndexKey.IsString()) {
    const std::string& key = vntIndexKey.AsString();
    const auto it = std::ranges::find_if(keys_, [&](const std::string& k) { return EqualsNoCase(k, key); });
    if (it == keys_.end()) Raise(kInvalidProcedureCall);
    return records_[static_cast<size_t>(it - keys_.begin())];
  }
  const int32_t position = vntIndexKey.AsInt32();
  if (position < 1 || position > Count()) Raise(kSubscriptOutOfRange);
  return records_[static_cast<size_t>(position - 1)];
}

Variant IODeviceEnumerator::NewEnum() const {
  std::vector<Variant> items;
  items.reserve(records_.size());
  for (const auto& record : records_) items.emplace_back(std::static_pointer_cast<Object>(record));
  return Variant::Array(vtDispatch, std::move(items));
}

void IODeviceEnumerator::Add(std::string key, std::shared_ptr<IODeviceInfo> record) {
  if (std::ranges::any_of(keys_, [&](const std::string& k) { return EqualsNoCase(k, key); }))
    Raise(kKeyAlreadyAssociated);
  keys_.push_back(std::move(key));
  records_.push_back(std::move(record));
}

}  // namespace vmio
