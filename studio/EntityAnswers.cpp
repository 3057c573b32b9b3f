// Answers about a configuration: its entities, findings, layout, and what a user can set.

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <map>

#include "Request.h"
#include "inspect/compare/Compare.h"
#include "inspect/layout/PayloadMap.h"
#include "inspect/lint/Lint.h"
#include "inspect/model/Description.h"
#include "inspect/model/Summary.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::studio {

using namespace inspect;

namespace {

void WriteTexts(const std::vector<std::string>& texts, std::string& out) {
  JsonWriter list(out, '[');
  for (const std::string& text : texts) json::AppendString(text, list.Element());
}

// Numbers are texts, since those of 64 bits do not fit into a number of JavaScript.
void WriteNumberControl(const Attribute& number, const BitRange& bits, JsonWriter& control) {
  std::string low = MinText(number);
  std::string high = UserText(number, std::min(static_cast<uint64_t>(number.uint_spec.max), bits.MaxValue()));
  if (std::strtod(low.c_str(), nullptr) > std::strtod(high.c_str(), nullptr)) std::swap(low, high);
  control.Text("kind", "number");
  control.Text("min", low);
  control.Text("max", high);
  control.Text("step", ShortestText(std::abs(number.uint_spec.ratio * number.uint_spec.step)));
}

void WriteControl(const Field& field, std::string& out) {
  const Attribute& attribute = *field.attribute;
  JsonWriter control(out);
  if (IsBool(attribute)) {
    control.Text("kind", "switch");
  } else if (IsEnum(attribute)) {
    control.Text("kind", "choice");
    WriteTexts(attribute.enumList, control.Member("items"));
  } else if (IsBinary(attribute)) {
    control.Text("kind", "bytes");
    control.Number("bytes", field.bits.Length() / 8);
  } else {
    WriteNumberControl(attribute, field.bits, control);
  }
}

void WriteAttribute(const EntityModel& entity, uint64_t entityIndex, const Field& field, std::string& out) {
  const Attribute& attribute = *field.attribute;
  const Places places = PlacesOf(entity, field.element);
  JsonWriter writer(out);
  writer.Number("element", field.element);
  writer.Text("name", attribute.name);
  writer.Text("label", attribute.display_name.empty() ? attribute.name : attribute.display_name);
  writer.Text("description", attribute.desc);
  writer.Text("group", GroupName(attribute.type));
  writer.Text("type", DataTypeName(attribute.data_type));
  writer.Text("place", PlaceText(places.read.IsEmpty() ? places.written : places.read));
  writer.Text("pointer", fmt::format("/entities/{}/attrs/{}", entityIndex, field.element));
  if (IsEnum(attribute)) WriteTexts(attribute.enumList, writer.Member("items"));
  const Field* written = entity.Written(field.element);
  if (written != nullptr) WriteControl(*written, writer.Member("control"));
}

// The rows of the picture, whose pieces name the elements that lie there.
void WriteRows(const PayloadMap& map, const EntityModel& entity, std::string& out) {
  std::map<const Attribute*, size_t> elements;
  for (const Field* field : entity.Fields()) elements[field->attribute] = field->element;
  JsonWriter rows(out, '[');
  for (const MapRow& row : RowsOf(map)) {
    JsonWriter written(rows.Element());
    written.Number("byte", row.byteIndex);
    if (row.isLeftOut) written.Text("leftOut", LeftOutText(map, *row.block));
    if (EndsWrite(map, row)) written.Member("endsWrite") += "true";
    JsonWriter pieces(written.Member("pieces"), '[');
    for (const MapPiece& piece : row.block->pieces) {
      JsonWriter one(pieces.Element());
      one.Number("column", piece.column);
      one.Number("columns", piece.columns);
      one.Text("text", row.isLeftOut ? "" : PieceNames(map, row, piece));
      one.Text("valueBits", row.isLeftOut ? "" : ValueBitsText(map, row.byteIndex, piece));
      JsonWriter list(one.Member("elements"), '[');
      for (const size_t field : piece.fields) list.Element() += std::to_string(elements[map.fields[field].attribute]);
    }
  }
}

}  // namespace

void AnswerEntities(const Request& request, std::string& answer) {
  const json::Document configuration = ReadConfiguration(request.Text("configuration"));
  JsonWriter writer(answer);
  JsonWriter list(writer.Member("entities"), '[');
  for (const Json::Value& entity : EntitiesOf(configuration)) {
    JsonWriter one(list.Element());
    std::string name;
    std::string displayName;
    static_cast<void>(ProtocolGetAttrString_4_0(entity, "name", name));
    static_cast<void>(ProtocolGetAttrString_4_0(entity, "display_name", displayName));
    one.Text("name", name);
    one.Text("displayName", displayName);
  }
}

void AnswerLint(const Request& request, std::string& answer) {
  const std::string text = request.Text("configuration");
  CheckSize(text);
  const std::string name = kConfiguration;
  answer += FindingsJson({{name, name, PlaceAll(text, Lint(name, text, Severity::kInfo, {}).findings)}});
}

void AnswerEntity(const Request& request, std::string& answer) {
  const ChosenEntity chosen(request);
  const PayloadMap map = MapPayload(chosen.model);
  JsonWriter writer(answer);
  writer.Json("description", DescriptionJson(chosen.model));
  writer.Json("layout", MapJson(map));
  writer.Text("summary", map.summary);
  WriteTexts(Remarks(map), writer.Member("remarks"));
  WriteRows(map, chosen.model, writer.Member("rows"));
  JsonWriter attributes(writer.Member("attributes"), '[');
  for (const Field* field : chosen.model.Fields()) {
    WriteAttribute(chosen.model, request.Number("entity"), *field, attributes.Element());
  }
}

void AnswerCompare(const Request& request, std::string& answer) {
  const json::Document before = ReadConfiguration(request.Text("configuration"));
  const json::Document after = ReadConfiguration(request.Text("after"), "next version");
  answer += ChangesJson({"before", &before}, {"after", &after}, Compare(before, after));
}

}  // namespace morvix::studio
