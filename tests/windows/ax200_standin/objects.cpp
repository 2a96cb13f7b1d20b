// The four AX200 classes, each a relay to the line service: the application's presence is
// HELLO, the connection's address ADDRESS, the data object's lists DOORS and SENSORS, the
// door-control object's requests STATUS and COMMAND, its events the service's EVENT lines.
#include "objects.h"

#include <olectl.h>

#include <new>
#include <string>
#include <utility>
#include <vector>

#include "access/ax200_lines.h"
#include "automation.h"
#include "platform/windows/core/wide_text.h"
#include "service_link.h"

namespace ax200 {
namespace {

// The event dispatch ids the IDL gives _DoorConEvents.
constexpr DISPID kDoorStatusEvent = 17;
constexpr DISPID kDisconnectedEvent = 23;

using vmio::Utf8;

BSTR Bstr(const std::string& utf8) {
  const std::wstring text = vmio::Utf16(utf8);
  return SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
}

size_t NoMoreLines(const std::string&) { return 0; }

// "DOORS valid n" and "SENSORS n" announce n more lines.
size_t ListedLines(const std::string& first) {
  const auto fields = vmio::LineFields(first);
  const auto n = fields.empty() ? std::nullopt : vmio::ParseDecimal(fields.back());
  return n && *n > 0 && *n <= vmio::kMaxListed ? static_cast<size_t>(*n) : 0;
}

class Application final : public Automation<IAx200Application> {
 public:
  HRESULT STDMETHODCALLTYPE get_Device(BSTR* value) override {
    *value = SysAllocString(device_.c_str());
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE put_Device(BSTR value) override {
    device_ = value ? value : L"";
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_Present(VARIANT_BOOL* value) override {
    BSTR device = SysAllocString(device_.c_str());
    const auto reply = ServiceLink::Get().Ask(vmio::ServiceLine({"HELLO", Utf8(device)}), &NoMoreLines);
    SysFreeString(device);
    const auto fields = reply ? vmio::LineFields(reply->front()) : std::vector<std::string_view>();
    if (fields.size() != 2 || fields[0] != "PRESENT") return E_FAIL;
    *value = fields[1] == "1" ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
  }

 private:
  std::wstring device_;
};

class Connection final : public Automation<IAx200Connection> {
 public:
  HRESULT STDMETHODCALLTYPE get_LocalAddress(BSTR* value) override {
    *value = Bstr(address_);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE put_LocalAddress(BSTR value) override {
    address_ = Utf8(value);
    const auto reply = ServiceLink::Get().Ask(vmio::ServiceLine({"ADDRESS", address_}), &NoMoreLines);
    return reply && reply->front() == "OK" ? S_OK : E_FAIL;
  }

 private:
  std::string address_;
};

class Record final : public Automation<IAx200Record> {
 public:
  Record(VARIANT id, std::string name, std::string value) : id_(id), name_(std::move(name)), value_(std::move(value)) {}

  HRESULT STDMETHODCALLTYPE get_ID(VARIANT* value) override { return VariantCopy(value, &id_); }
  HRESULT STDMETHODCALLTYPE get_Name(BSTR* value) override {
    *value = Bstr(name_);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_Value(BSTR* value) override {
    *value = Bstr(value_);
    return S_OK;
  }

 private:
  ~Record() override { VariantClear(&id_); }

  VARIANT id_;
  std::string name_;
  std::string value_;
};

// The list lines after the first, each "KIND id name [value]", as an array of records; the id
// a number when numeric is set. Null when a line is not a record of that kind.
SAFEARRAY* RecordArray(const std::vector<std::string>& lines, const char* kind, size_t fields, bool numeric) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_VARIANT, 0, static_cast<ULONG>(lines.size() - 1));
  for (LONG i = 0; array && static_cast<size_t>(i) + 1 < lines.size(); ++i) {
    const auto f = vmio::LineFields(lines[static_cast<size_t>(i) + 1]);
    VARIANT id;
    id.vt = VT_BSTR;
    id.bstrVal = f.size() == fields ? Bstr(std::string(f[1])) : nullptr;
    const auto number = f.size() == fields ? vmio::ParseDecimal(f[1]) : std::nullopt;
    if (f.size() != fields || f[0] != kind || (numeric && !number)) {
      SysFreeString(id.bstrVal);
      SafeArrayDestroy(array);
      return nullptr;
    }
    if (numeric) {
      SysFreeString(id.bstrVal);
      id.vt = VT_I4;
      id.lVal = *number;
    }
    VARIANT item;
    item.vt = VT_DISPATCH;
    item.pdispVal = new Record(id, std::string(f[2]), fields > 3 ? std::string(f[3]) : std::string());
    SafeArrayPutElement(array, &i, &item);  // takes its own reference
    item.pdispVal->Release();
  }
  return array;
}

class Data final : public Automation<IAx200Data> {
 public:
  HRESULT STDMETHODCALLTYPE GetDoors(BSTR a, BSTR b, VARIANT_BOOL* valid, VARIANT* doors) override {
    const auto reply = ServiceLink::Get().Ask(vmio::ServiceLine({"DOORS", Utf8(a), Utf8(b)}), &ListedLines);
    const auto head = reply ? vmio::LineFields(reply->front()) : std::vector<std::string_view>();
    if (head.size() != 3 || head[0] != "DOORS") return E_FAIL;
    SAFEARRAY* array = RecordArray(*reply, "DOOR", 3, true);
    if (!array) return E_FAIL;
    *valid = head[1] == "1" ? VARIANT_TRUE : VARIANT_FALSE;
    doors->vt = VT_ARRAY | VT_VARIANT;
    doors->parray = array;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetSensors(VARIANT* sensors) override {
    const auto reply = ServiceLink::Get().Ask(vmio::ServiceLine({"SENSORS"}), &ListedLines);
    if (!reply || vmio::LineFields(reply->front())[0] != "SENSORS") return E_FAIL;
    SAFEARRAY* array = RecordArray(*reply, "SENSOR", 4, false);
    if (!array) return E_FAIL;
    sensors->vt = VT_ARRAY | VT_VARIANT;
    sensors->parray = array;
    return S_OK;
  }
};

class DoorCon;

// DoorCon's one connection point: the sinks advised for _DoorConEvents.
class EventPoint final : public vmio::ComObject<IConnectionPoint> {
 public:
  explicit EventPoint(IConnectionPointContainer* container) : container_(container) {}

  // The container ends; the point may live on in a client's hands.
  void Detach() { container_ = nullptr; }

  // Calls every advised sink's event.
  void Fire(DISPID event) {
    std::vector<IDispatch*> sinks;
    for (const auto& [cookie, sink] : sinks_) {
      sink->AddRef();
      sinks.push_back(sink);
    }
    for (IDispatch* sink : sinks) {
      DISPPARAMS none{nullptr, nullptr, 0, 0};
      sink->Invoke(event, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr);
      sink->Release();
    }
  }

  HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* iid) override {
    *iid = DIID__DoorConEvents;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetConnectionPointContainer(IConnectionPointContainer** out) override {
    *out = container_;
    if (!container_) return E_UNEXPECTED;
    container_->AddRef();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Advise(IUnknown* sink, DWORD* cookie) override {
    IDispatch* events = nullptr;
    if (!sink || FAILED(sink->QueryInterface(DIID__DoorConEvents, reinterpret_cast<void**>(&events)))) {
      return CONNECT_E_CANNOTCONNECT;
    }
    *cookie = ++last_cookie_;
    sinks_.emplace_back(*cookie, events);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) override {
    for (auto it = sinks_.begin(); it != sinks_.end(); ++it) {
      if (it->first == cookie) {
        it->second->Release();
        sinks_.erase(it);
        return S_OK;
      }
    }
    return CONNECT_E_NOCONNECTION;
  }
  HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections**) override { return E_NOTIMPL; }

 private:
  void* Interface(REFIID iid) override {
    return iid == IID_IConnectionPoint ? static_cast<IConnectionPoint*>(this) : nullptr;
  }

  ~EventPoint() override {
    for (const auto& [cookie, sink] : sinks_) sink->Release();
  }

  IConnectionPointContainer* container_;
  std::vector<std::pair<DWORD, IDispatch*>> sinks_;
  DWORD last_cookie_ = 0;
};

class DoorCon final : public Automation<IAx200DoorCon, IConnectionPointContainer, IProvideClassInfo>,
                      private EventListener {
 public:
  DoorCon() : point_(new EventPoint(this)) { ServiceLink::Get().Listen(this); }

  HRESULT STDMETHODCALLTYPE RequestStatus(BSTR id) override { return Send("STATUS", id); }
  HRESULT STDMETHODCALLTYPE get_Status(BSTR* value) override {
    *value = Bstr(status_);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE OpenDoor(BSTR id) override { return Command(vmio::DoorCommand::kOpen, id); }
  HRESULT STDMETHODCALLTYPE UnlockDoor(BSTR id) override { return Command(vmio::DoorCommand::kUnlock, id); }
  HRESULT STDMETHODCALLTYPE NormalMode(BSTR id) override { return Command(vmio::DoorCommand::kNormal, id); }
  HRESULT STDMETHODCALLTYPE HighSecurityMode(BSTR id) override { return Command(vmio::DoorCommand::kHighSecurity, id); }
  HRESULT STDMETHODCALLTYPE DeadlockDoor(BSTR id) override { return Command(vmio::DoorCommand::kDeadlock, id); }

  HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** out) override {
    *out = iid == DIID__DoorConEvents ? point_ : nullptr;
    if (!*out) return CONNECT_E_NOCONNECTION;
    point_->AddRef();
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetClassInfo(ITypeInfo** out) override {
    *out = TypeInfoOf(CLSID_DoorCon);
    if (!*out) return E_UNEXPECTED;
    (*out)->AddRef();
    return S_OK;
  }

 private:
  ~DoorCon() override {
    ServiceLink::Get().Forget(this);
    point_->Detach();
    point_->Release();
  }

  void* Interface(REFIID iid) override {
    if (void* dual = Automation::Interface(iid)) return dual;
    if (iid == IID_IConnectionPointContainer) return static_cast<IConnectionPointContainer*>(this);
    if (iid == IID_IProvideClassInfo) return static_cast<IProvideClassInfo*>(this);
    return nullptr;
  }

  HRESULT Send(const char* request, BSTR id) {
    return ServiceLink::Get().Send(vmio::ServiceLine({request, Utf8(id)})) ? S_OK : E_FAIL;
  }
  HRESULT Command(vmio::DoorCommand command, BSTR id) {
    const std::string name(vmio::CommandName(command));
    return ServiceLink::Get().Send(vmio::ServiceLine({"COMMAND", name, Utf8(id)})) ? S_OK : E_FAIL;
  }

  void OnDoorStatus(const std::string& status) override {
    status_ = status;
    point_->Fire(kDoorStatusEvent);
  }
  void OnDisconnected() override {
    status_.clear();
    point_->Fire(kDisconnectedEvent);
  }

  EventPoint* point_;
  std::string status_;
};

}  // namespace

IUnknown* CreateObject(REFCLSID clsid) {
  if (clsid == CLSID_Application) return static_cast<IAx200Application*>(new (std::nothrow) Application);
  if (clsid == CLSID_Connection) return static_cast<IAx200Connection*>(new (std::nothrow) Connection);
  if (clsid == CLSID_Data) return static_cast<IAx200Data*>(new (std::nothrow) Data);
  if (clsid == CLSID_DoorCon) return static_cast<IAx200DoorCon*>(new (std::nothrow) DoorCon);
  return nullptr;
}

}  // namespace ax200
