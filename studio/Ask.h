// The one question that the page asks: a request in JSON, answered in JSON by the module and inspect.

#ifndef MORVIX_STUDIO_ASK_H
#define MORVIX_STUDIO_ASK_H

#include <string>

namespace morvix::studio {

// The answer to a request, an object with a member "ask" and others that depend on it:
//
//   entities   {configuration}                 {"entities": [{"name", "displayName", "id"}]}
//   lint       {configuration}                 what `dp4 lint --severity info --format json` prints
//   entity     + {entity}                      {"description", "layout", "rows", "remarks", "controls"}: what `dp4
//   show`
//                                              and `dp4 layout` print as JSON, the rows of the picture, and what a user
//                                              can set
//   encode     + {entity, values, subDevice}   what `dp4 encode --explain --format json` prints, and the packet as read
//   read       + {entity, packet}              the packet, attribute by attribute and byte by byte
//   flip       + {entity, packet, bit}         the packet with one bit of its payload inverted, as read
//   capture    + {entity, line, text, first}   a row for each packet of the lines in `text`
//   match      {line, text}                    how the pattern takes the first lines apart
//   compare    {configuration, after}          what `dp4 compare --format json` prints
//   export     + {entity, file, form, ...}     {"files": [{"name", "text"}], "command"}
//
// "+" stands for {configuration}; configurations are texts. `entity` is the index of the entity, so that names may
// repeat. Unusable input gives {"error": text}. Never throws; may be called from any thread.
std::string Ask(const std::string& request);

}  // namespace morvix::studio

#endif
