#include "Operations.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>

#include "Floor.h"
#include "Peer.h"
#include "bindings/c/morvix_protocol.h"

namespace {

// Keeps results from being optimised away.
volatile size_t sink = 0;

[[noreturn]] void Fail(const char* what) {
  std::cerr << "operations: " << what << '\n';
  std::exit(EXIT_FAILURE);
}

void Release(byte* flags, byte* value) {
  sink = sink + (flags != nullptr ? flags[0] : 0) + value[0];
  std::free(flags);
  std::free(value);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
std::string WriteText(const Json::Value& value) { return Json::FastWriter().write(value); }
#pragma GCC diagnostic pop

// Like a host that reads many documents: with one reader, without comments.
Json::Value ReadText(const std::string& text) {
  static const std::unique_ptr<Json::CharReader> reader = [] {
    Json::CharReaderBuilder builder;
    builder["collectComments"] = false;
    return std::unique_ptr<Json::CharReader>(builder.newCharReader());
  }();
  Json::Value value;
  reader->parse(text.data(), text.data() + text.size(), &value, nullptr);
  return value;
}

MorvixProtocolPackage_4_0 Unpack(const Workload& workload) {
  MorvixProtocolPackage_4_0 package;
  if (!ProtocolUnpackPackage_4_0(workload.packet.data(), workload.packet.size(), package)) Fail("unpack");
  return package;
}

void Decode(const Workload& workload, bool parsedOnce, Json::Value& document) {
  const MorvixProtocolPackage_4_0 package = Unpack(workload);
  if (parsedOnce) {
    ProtocolDecodeAttributes_4_0(workload.entityInfo, workload.attributes, package, document);
  } else {
    ProtocolDecodeEntity_4_0(workload.entity, package, document);
  }
  std::free(package.value);
}

MorvixProtocolPackage_4_0 Encode(const Workload& workload, bool parsedOnce, const Json::Value& values) {
  MorvixProtocolPackage_4_0 package;
  package.cmd = MorvixProtocolCommandWriteReq_4_0;
  if (parsedOnce) {
    ProtocolEncodeAttributes_4_0(workload.entityInfo, workload.writable, package, values);
  } else {
    ProtocolEncodeEntity_4_0(workload.entity, package, values);
  }
  return package;
}

struct Received {
  std::string document;
  std::vector<TavelReceiveInfo> alerts;
  std::vector<TavelReceiveInfo> faults;

  // Keeps the memory.
  void Clear() {
    alerts.clear();
    faults.clear();
  }
  bool operator!=(const Received& other) const {
    const auto same = [](const TavelReceiveInfo& left, const TavelReceiveInfo& right) {
      return left.name == right.name && left.value == right.value;
    };
    const auto equal = [&](const std::vector<TavelReceiveInfo>& left, const std::vector<TavelReceiveInfo>& right) {
      return std::equal(left.begin(), left.end(), right.begin(), right.end(), same);
    };
    return document != other.document || !equal(alerts, other.alerts) || !equal(faults, other.faults);
  }
};

Received Receive(const Workload& workload, bool parsedOnce) {
  Json::Value document;
  Decode(workload, parsedOnce, document);
  document["version"] = 4.0;
  Received received;
  Json::Value alerts;
  Json::Value faults;
  received.document = ProtocolConvertReceiveResult_4_0(WriteText(document), alerts, faults);
  ProtocolGetAlertsAndFaults_4_0(alerts, faults, received.alerts, received.faults);
  return received;
}

// Packs into a buffer that the host reuses.
size_t TextToBytes(const Workload& workload, std::vector<byte>& packet) {
  const MorvixProtocolPackage_4_0 package = Encode(workload, true, ReadText(workload.valuesText));
  const size_t size = ProtocolPackPackage_4_0(package, packet.data(), packet.size() - 4);
  Release(package.flags, package.value);
  return size;
}

std::string BytesToText(const Workload& workload) {
  Json::Value document;
  Decode(workload, true, document);
  return WriteText(document);
}

bool ReceiveInOnePass(const Workload& workload, Received& received) {
  return ProtocolReceivePacket_4_0(workload.entityInfo, workload.attributes, workload.packet.data(),
                                   workload.packet.size(), received.document, received.alerts, received.faults);
}

bool ReceiveByPlan(const Workload& workload, const MorvixProtocolReceivePlan_4_0& plan, Received& received) {
  return ProtocolReceivePacket_4_0(plan, workload.packet.data(), workload.packet.size(), received.document,
                                   received.alerts, received.faults);
}

void CheckOnePass(const Workload& workload) {
  const Received expected = Receive(workload, true);
  Received received;
  if (!ReceiveInOnePass(workload, received) || received != expected) Fail("one pass gives something else");
  Received planned;
  const auto plan = ProtocolPlanReceive_4_0(workload.entityInfo, workload.attributes);
  if (!ReceiveByPlan(workload, plan, planned) || planned != expected) Fail("a plan gives something else");
  Received floor;
  FloorReceive(FloorReceivePlan(workload), workload.packet.data(), floor.document, floor.alerts, floor.faults);
  if (floor != expected) Fail("the floor receives something else");
}

void CheckFloors(const Workload& workload) {
  const MorvixProtocolPackage_4_0 package = Encode(workload, true, workload.values);
  const FloorPackage floor = FloorEncode(workload);
  if (package.sizeValue != workload.writableLength || package.sizeFlags != workload.flagLength ||
      std::memcmp(package.value, floor.value, workload.writableLength) != 0 ||
      std::memcmp(package.flags, floor.flags, workload.flagLength) != 0) {
    Fail("the floor encodes something else");
  }
  Release(package.flags, package.value);
  Release(floor.flags, floor.value);
  Json::Value ours;
  Json::Value floors;
  Decode(workload, true, ours);
  FloorDecode(workload, floors);
  if (ours != floors) Fail("the floor decodes something else");
  for (const Json::Value* list : {&workload.alerts, &workload.faults}) {
    std::vector<TavelReceiveInfo> active;
    std::vector<TavelReceiveInfo> floorActive;
    ProtocolGetAlertsOrFaults_4_0(*list, active);
    if (active.size() != FloorAlerts(*list, floorActive)) Fail("the floor finds other alerts");
  }
}

// Each way to receive in one pass, with results of its own and, as "/reused", with the memory of those before.
void AddReceives(const Workload& workload, std::vector<Operation>& operations) {
  const auto add = [&operations](const std::string& name, const std::function<bool(Received&)>& receive) {
    const auto run = [receive](Received& received) {
      if (!receive(received)) Fail("receive");
      sink = sink + received.document.size();
    };
    operations.push_back({name, [run] {
                            Received fresh;
                            run(fresh);
                          }});
    operations.push_back({name + "/reused", [run, reused = std::make_shared<Received>()] {
                            reused->Clear();
                            run(*reused);
                          }});
  };
  const Workload& w = workload;
  add("receive/one-pass", [&w](Received& received) { return ReceiveInOnePass(w, received); });
  add("receive/plan", [&w, plan = ProtocolPlanReceive_4_0(w.entityInfo, w.attributes)](Received& received) {
    return ReceiveByPlan(w, plan, received);
  });
  add("floor/receive", [&w, plan = FloorReceivePlan(w)](Received& received) {
    FloorReceive(plan, w.packet.data(), received.document, received.alerts, received.faults);
    return true;
  });
}

// The workload's entity, opened through the C interface.
std::shared_ptr<morvix_entity> OpenEntity(const Workload& workload) {
  Json::Value configuration;
  configuration["entities"].append(workload.entity);
  const std::string text = WriteText(configuration);
  morvix_entity* entity = nullptr;
  if (morvix_entity_open(text.data(), text.size(), nullptr, &entity, nullptr) != MORVIX_OK) Fail("open");
  return {entity, morvix_entity_close};
}

// The entity is opened by the first call, so that it does not change the heap of the other operations.
void AddCInterface(const Workload& w, std::vector<Operation>& operations) {
  auto opened = [&w, entity = std::shared_ptr<morvix_entity>()]() mutable {
    if (entity == nullptr) entity = OpenEntity(w);
    return entity.get();
  };
  operations.push_back({"c/receive", [&w, opened]() mutable {
                          morvix_bytes document;
                          morvix_bytes active;
                          if (morvix_receive(opened(), w.packet.data(), w.packet.size(), &document, &active, nullptr) !=
                              MORVIX_OK) {
                            Fail("the C interface does not receive");
                          }
                          sink = sink + document.size;
                          morvix_free(document.data);
                          morvix_free(active.data);
                        }});
  operations.push_back({"c/decode", [&w, opened]() mutable {
                          morvix_bytes document;
                          if (morvix_decode(opened(), w.packet.data(), w.packet.size(), &document, nullptr) !=
                              MORVIX_OK) {
                            Fail("the C interface does not decode");
                          }
                          sink = sink + document.size;
                          morvix_free(document.data);
                        }});
}

}  // namespace

std::vector<Operation> MakeOperations(const Workload& workload) {
  CheckFloors(workload);
  CheckOnePass(workload);
  const Workload& w = workload;
  std::vector<Operation> operations;
  const auto add = [&operations](const char* name, std::function<void()> run) {
    operations.push_back({name, std::move(run)});
  };
  for (const bool parsedOnce : {false, true}) {
    const auto addForm = [&](const char* name, std::function<void()> run) {
      add((std::string(name) + (parsedOnce ? "/parse-once" : "/one-call")).c_str(), std::move(run));
    };
    addForm("encode", [&w, parsedOnce] {
      const MorvixProtocolPackage_4_0 package = Encode(w, parsedOnce, w.values);
      Release(package.flags, package.value);
    });
    addForm("decode", [&w, parsedOnce] {
      MorvixProtocolPackage_4_0 package;  // the payload is not copied, as in the floor
      package.value = const_cast<byte*>(w.packet.data() + 1);
      package.sizeValue = w.payloadLength;
      Json::Value document;
      if (parsedOnce) {
        ProtocolDecodeAttributes_4_0(w.entityInfo, w.attributes, package, document);
      } else {
        ProtocolDecodeEntity_4_0(w.entity, package, document);
      }
    });
    addForm("receive", [&w, parsedOnce] { sink = sink + Receive(w, parsedOnce).document.size(); });
  }
  AddReceives(w, operations);
  add("convert", [&w] {
    Json::Value alerts;
    Json::Value faults;
    sink = sink + ProtocolConvertReceiveResult_4_0(w.documentText, alerts, faults).size();
  });
  add("alerts", [&w] {
    Received received;
    ProtocolGetAlertsAndFaults_4_0(w.alerts, w.faults, received.alerts, received.faults);
    sink = sink + received.alerts.size();
  });
  add("floor/encode", [&w] {
    const FloorPackage package = FloorEncode(w);
    Release(package.flags, package.value);
  });
  add("floor/decode", [&w] {
    Json::Value document;
    FloorDecode(w, document);
  });
  add("floor/config", [&w] { sink = sink + FloorConfig(w.entity); });
  add("floor/convert", [&w] { sink = sink + FloorConvert(w.documentText).size(); });
  add("floor/alerts", [&w] {
    Received received;
    FloorAlerts(w.alerts, received.alerts);
    FloorAlerts(w.faults, received.faults);
    sink = sink + received.alerts.size();
  });
  const auto packet = std::make_shared<std::vector<byte>>(1 + w.flagLength + w.payloadLength + 4);
  add("text-to-bytes", [&w, packet] { sink = sink + TextToBytes(w, *packet); });
  add("bytes-to-text", [&w] { sink = sink + BytesToText(w).size(); });
  if (w.entity["attrs"].size() == kPeerFieldCount) AddPeerOperations(workload, operations);
  AddCInterface(w, operations);
  return operations;
}
