// The one question that the page asks: a request in JSON, answered in JSON by the module and inspect.

#ifndef MORVIX_STUDIO_ASK_H
#define MORVIX_STUDIO_ASK_H

#include <string>

namespace morvix::studio {

// The answer to a request, an object with a member "ask" and others that depend on it:
//
//   entities  {configuration}           {"entities": [{"name", "displayName"}]}
//   lint      {configuration}           what `dp4 lint --severity info --format json` prints of a file "configuration"
//   entity    + {}                      {"summary", "remarks", "description", "layout", "rows", "attributes"}:
//                                       "description" and "layout" are what `dp4 show` and `dp4 layout` print as JSON,
//                                       "rows" those of the picture, "attributes" with a "control" for what can be set
//   encode    + {values}                {"encoding": what `dp4 encode --explain --format json` prints, its problems
//                                       without places, "reading": the packet as "read" answers, if there is one};
//                                       "command" and "subDevice" may be given
//   read      + {packet}                the packet, byte by byte in "parts" and attribute by attribute in "values", or
//                                       why it is "refused"
//   flip      + {packet, bit}           the same of the packet with one bit of its payload inverted
//   capture   + {line, text, first}     {"rows", "unmatched"}: a row for each packet in the lines of "text", the first
//                                       of which has the number "first"; "line" is what `dp4 decode --line` takes
//   match     {line, text}              {"line", "lines"}: how the pattern takes these lines apart; without "line", the
//                                       ready-made one that reads most of them is taken
//   compare   {configuration, after}    what `dp4 compare --format json` prints
//   export    + {form, file}            {"files": [{"name", "text"}], "command"}: what that dp4 command writes; "form"
//                                       is svg, c, vectors, wireshark, or c-array, which takes the members of encode
//                                       and its packet, too
//
// "+" stands for {configuration, entity}. Configurations are texts, "entity" is an index, so that names may repeat.
// Unusable input gives {"error": text}. Never throws; may be called from any thread.
std::string Ask(const std::string& request);

}  // namespace morvix::studio

#endif
