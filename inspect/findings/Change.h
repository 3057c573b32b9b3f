// Differences between two documents, and their forms for people and programs.

#ifndef MORVIX_INSPECT_FINDINGS_CHANGE_H
#define MORVIX_INSPECT_FINDINGS_CHANGE_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "inspect/findings/Finding.h"

namespace morvix::inspect {

// A place in one of the two documents.
struct Site {
  size_t offset;  // of the value in the text
  std::string pointer;
};

// One packet under one of the two configurations.
struct ShownPacket {
  std::vector<unsigned char> bytes;  // empty where none is sent, or where there are too many to be kept
  std::string meaning;               // what its receiver makes of it, or why there is none
};

struct Change {
  const Rule* rule;
  std::optional<Site> before;  // where it stood, if it was there
  std::optional<Site> after;   // where it stands, if it is there
  std::string message;
  std::string effect;
  std::string fix;
  std::vector<std::string> attributes;  // the names of all that are concerned, in the new order
  ShownPacket packetBefore;
  ShownPacket packetAfter;
};

// One of the two documents.
struct Version {
  std::string path;  // as it was given; "-" for standard input
  const json::Document* document;
};

// All forms end their last line.
std::string ChangesText(const Version& before, const Version& after, const std::vector<Change>& changes, bool color);
std::string ChangesJson(const Version& before, const Version& after, const std::vector<Change>& changes);
std::string ChangesSarif(const Version& before, const Version& after, const std::vector<Change>& changes,
                         const Rules& rules);  // SARIF 2.1.0

}  // namespace morvix::inspect

#endif
