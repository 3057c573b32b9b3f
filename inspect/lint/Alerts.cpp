// Alerts and faults whose values the module cannot evaluate as active or not.

#include <fmt/format.h>

#include <cmath>
#include <cstdlib>
#include <optional>
#include <set>

#include "inspect/lint/Checks.h"
#include "inspect/lint/Rules.h"
#include "inspect/text/Escape.h"

namespace morvix::inspect {

namespace {

// The active value of an alert, or nothing when it is not active.
std::optional<int32_t> ActiveValue(const std::string& value) {
  Json::Value alerts;
  Json::Value& alert = alerts.append(Json::objectValue);
  alert["name"] = "alert";
  alert["value"] = value;
  std::vector<TavelReceiveInfo> active;
  ProtocolGetAlertsOrFaults_4_0(alerts, active);
  if (active.empty()) return std::nullopt;
  return active[0].value;
}

// The raw values around user value 0 that are within the limits.
std::set<uint64_t> RawsAroundZero(const Scaling& scaling) {
  std::set<uint64_t> raws = {static_cast<uint64_t>(scaling.min), static_cast<uint64_t>(scaling.max)};
  const double zero = std::floor(-scaling.addition / scaling.ratio);
  for (const double raw : {zero - 1, zero, zero + 1, zero + 2}) {
    const bool isWithin = raw >= static_cast<double>(scaling.min) && raw <= static_cast<double>(scaling.max);
    if (isWithin) raws.insert(static_cast<uint64_t>(raw));
  }
  return raws;
}

void LintLargeAlert(const EntityModel& entity, const Field& field, Findings& findings) {
  const Attribute& number = *field.attribute;
  for (const int64_t raw : {number.uint_spec.max, number.uint_spec.min}) {
    const std::string text = UserText(number, static_cast<uint64_t>(raw));
    if (text.empty()) continue;
    const double value = std::trunc(std::strtod(text.c_str(), nullptr));
    const std::optional<int32_t> active = ActiveValue(text);
    if (!std::isfinite(value) || value == active.value_or(0)) continue;
    return findings.Add(rules::kAlertTooLarge, entity.At(field.element, {"uint_spec"}),
                        entity.Label(field.element) + " is an alert or fault with values of more than 32 bits",
                        fmt::format("raw {} decodes as {}, which is {}", raw, Quoted(text),
                                    active ? fmt::format("active with the value {}", *active) : "not active"),
                        "choose units in which every value lies between -2147483648 and 2147483647");
  }
}

void LintFractions(const EntityModel& entity, const Field& field, Findings& findings) {
  for (const uint64_t raw : RawsAroundZero(field.attribute->uint_spec)) {
    const std::string text = UserText(*field.attribute, raw);
    if (text.empty() || std::fabs(std::strtod(text.c_str(), nullptr)) >= 1) continue;
    if (text == "0" || text == "-0" || ActiveValue(text)) continue;
    return findings.Add(rules::kFractionNotActive, entity.At(field.element, {"uint_spec"}),
                        entity.Label(field.element) + " is an alert or fault with values below 1",
                        fmt::format("raw {} decodes as {}, which is not active", raw, Quoted(text)),
                        "choose units in which every value that matters is at least 1");
  }
}

}  // namespace

void LintAlerts(const EntityModel& entity, Findings& findings) {
  for (const Field& field : entity.Reading().fields) {
    const Attribute& attribute = *field.attribute;
    if (!IsAlertOrFault(attribute)) continue;
    if (IsNumber(attribute) && IsScaled(attribute)) {
      LintFractions(entity, field, findings);
      LintLargeAlert(entity, field, findings);
    }
    if (!IsBinary(attribute)) continue;
    findings.Add(rules::kBinaryAlert, entity.At(field.element, {"data_type"}),
                 entity.Label(field.element) + " is an alert or fault that is a binary",
                 "it is active when its base64 text begins with an integer other than 0: 'AQID' is not, '4AAA' is",
                 "use a bool, an enum or a number");
  }
}

}  // namespace morvix::inspect
