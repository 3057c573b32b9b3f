// Encodes and decodes values of every attribute and tells which do not come back.

#ifndef MORVIX_DP4_ROUNDTRIP_H
#define MORVIX_DP4_ROUNDTRIP_H

#include "LintModel.h"

namespace dp4 {

// Takes the minimum, the maximum and a middle value of every attribute: each alone, and those of all attributes
// together, once as a write of the writable ones and once as the response of a device. An attribute has at most one
// finding.
void LintRoundtrip(const LintEntity& entity, Findings& findings);

}  // namespace dp4

#endif
