// The checks of lint. Each checks one entity.

#ifndef MORVIX_INSPECT_LINT_CHECKS_H
#define MORVIX_INSPECT_LINT_CHECKS_H

#include <map>
#include <string>

#include "inspect/findings/Finding.h"
#include "inspect/model/EntityModel.h"

namespace morvix::inspect {

// Of objects: members that are unknown, unused or misread.
void LintEntityMembers(const Spot& entity, Findings& findings);
void LintAttributeMembers(const EntityModel& entity, Findings& findings);

void LintDropped(const EntityModel& entity, Findings& findings);    // what the parser drops, and what that shifts
void LintNames(const EntityModel& entity, Findings& findings);      // of attributes, in documents
void LintFields(const EntityModel& entity, Findings& findings);     // each field's place, and the whole payload
void LintOverlaps(const EntityModel& entity, Findings& findings);   // fields that share bits, or corrupt others
void LintGroups(const EntityModel& entity, Findings& findings);     // sizes of bit groups
void LintNumbers(const EntityModel& entity, Findings& findings);    // widths and scalings
void LintEnums(const EntityModel& entity, Findings& findings);      // items
void LintAlerts(const EntityModel& entity, Findings& findings);     // alerts and faults that are never active
void LintRoundtrip(const EntityModel& entity, Findings& findings);  // values that a round trip changes

// The effect of an unusable place, or of an enum without items.
std::string EffectOfUnusable(const EntityModel& entity, size_t element);

// By element: the effect on a bit group when the dropped attribute determined the group's size.
std::map<size_t, std::string> EffectsOnGroups(const EntityModel& entity);

// The keyword of "type", "data_type" or "unit" that was probably meant by `value`. Empty when `value` is a keyword or
// resembles none.
std::string MeantKeyword(const std::string& member, const Json::Value& value);

// "3 bytes instead of 2"
std::string SizesText(size_t size, size_t needed);

}  // namespace morvix::inspect

#endif
