#pragma once
/// @file
/// Lists of devices found on this machine, for a host to offer its user.
///
/// An IODeviceEnumerator is an ordered keyed collection of IODeviceInfo records, each giving a
/// device identifier to pass to Connect and a name to show. Hosts create neither type: a
/// discovering class (LogITEnum, say) derives from IODeviceEnumerator and fills it when it is
/// created. The base class's own instance is always empty.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "vmio/export.h"
#include "vmio/object.h"
#include "vmio/variant.h"

namespace vmio {

/// One device an enumerator found.
class VMIO_API IODeviceInfo : public Object {
 public:
  IODeviceInfo() = default;
  /// A record of an identifier and a name.
  IODeviceInfo(std::string ID, std::string Name) : id_(std::move(ID)), name_(std::move(Name)) {}

  /// What to pass to IODevice::Connect (a logger's /dev/hidraw path, say).
  std::string ID() const { return id_; }
  /// What to show a user ("LogIT Black Box 1").
  std::string Name() const { return name_; }

  static const MemberTable kMembers;  ///< ID (dispatch id 1), Name (2)
  const MemberTable& Members() const override { return kMembers; }

 private:
  std::string id_;
  std::string name_;
};

/// An ordered, keyed collection of the devices a discovering class found.
class VMIO_API IODeviceEnumerator : public Object {
 public:
  /// The records, in insertion order.
  using Records = std::vector<std::shared_ptr<IODeviceInfo>>;

  /// The record at a 1-based position (any numeric variant) or under a string key (compared
  /// without regard to case, as the collection's keys are). Raises 9 for a position out of
  /// range and 5 for an unknown key.
  std::shared_ptr<IODeviceInfo> Item(const Variant& vntIndexKey) const;
  /// The number of records.
  int32_t Count() const { return static_cast<int32_t>(records_.size()); }
  /// Every record in insertion order: what a host's for-each visits (NewEnum).
  Variant NewEnum() const;

  /// C++ iteration over the records, in insertion order.
  Records::const_iterator begin() const { return records_.begin(); }
  /// The end of the records.
  Records::const_iterator end() const { return records_.end(); }

  /// Item (dispatch id 0, the default member), Count (1), NewEnum (-4).
  static const MemberTable kMembers;
  const MemberTable& Members() const override { return kMembers; }

 protected:
  /// Appends a record under its key; raises 457 when the key is already taken.
  void Add(std::string key, std::shared_ptr<IODeviceInfo> record);

 private:
  Records records_;
  std::vector<std::string> keys_;
};

}  // namespace vmio
