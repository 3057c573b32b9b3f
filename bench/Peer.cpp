#include "Peer.h"

#include <google/protobuf/util/json_util.h>
#include <json/writer.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <iostream>

#include "peer.pb.h"

namespace {

using google::protobuf::util::JsonPrintOptions;
using google::protobuf::util::JsonStringToMessage;
using google::protobuf::util::MessageToJsonString;
using morvix::bench::Appliance;

volatile size_t sink = 0;

// "Alert 3" -> "alert3".
std::string FieldName(const std::string& key) {
  std::string name;
  for (const char c : key) {
    if (c != ' ') name += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return name;
}

std::string Write(const Json::Value& values) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["precision"] = 10;
  return Json::writeString(builder, values);
}

// The workload's values as the message's JSON: bools are bools there, everything else is the same.
Json::Value PeerValues(const Workload& workload) {
  Json::Value peerValues;
  const Json::Value& values = workload.values[kEntityName];
  for (const Field& field : workload.fields) {
    if (!values.isMember(field.key)) continue;
    const Json::Value& value = values[field.key];
    peerValues[FieldName(field.key)] = field.kind == Field::Kind::kBool ? Json::Value(value.asInt() != 0) : value;
  }
  return peerValues;
}

std::string TextToBytes(const std::string& text) {
  Appliance message;
  if (!JsonStringToMessage(text, &message).ok()) std::abort();
  return message.SerializeAsString();
}

// All fields are written, as our documents have them.
std::string BytesToText(const std::string& bytes) {
  Appliance message;
  if (!message.ParseFromString(bytes)) std::abort();
  JsonPrintOptions options;
  options.always_print_primitive_fields = true;
  std::string text;
  if (!MessageToJsonString(message, &text, options).ok()) std::abort();
  return text;
}

}  // namespace

void AddPeerOperations(const Workload& workload, std::vector<Operation>& operations) {
  const Json::Value values = PeerValues(workload);
  const std::string valuesText = Write(values);
  Json::Value all = values;
  for (const Json::Value* list : {&workload.alerts, &workload.faults}) {
    for (const Json::Value& item : *list) all[FieldName(item["name"].asString())] = item["value"];
  }
  if (all.size() != kPeerFieldCount) {
    std::cerr << "peer: " << all.size() << " fields instead of " << kPeerFieldCount << '\n';
    std::exit(EXIT_FAILURE);
  }
  const std::string bytes = TextToBytes(Write(all));
  if (TextToBytes(BytesToText(bytes)) != bytes) {
    std::cerr << "peer: a round trip loses a field\n";
    std::exit(EXIT_FAILURE);
  }
  operations.push_back({"protobuf/text-to-bytes", [valuesText] { sink = sink + TextToBytes(valuesText).size(); }});
  operations.push_back({"protobuf/bytes-to-text", [bytes] { sink = sink + BytesToText(bytes).size(); }});
}
