// The rules of compare, each a constant. Its severity says who breaks.

#ifndef MORVIX_INSPECT_COMPARE_RULES_H
#define MORVIX_INSPECT_COMPARE_RULES_H

#include "inspect/findings/Finding.h"

namespace morvix::inspect::changes {

inline constexpr Severity kDevices = Severity::kError;
inline constexpr Severity kApplications = Severity::kWarning;
inline constexpr Severity kNobody = Severity::kInfo;

// The product.
inline constexpr Rule kPacketVersion{"packet-version-changed", kDevices,
                                     "The protocol type or packet version, by which hosts choose devices, changed."};
inline constexpr Rule kProductKey{"product-key-changed", kApplications, "The product key changed."};

// Entities.
inline constexpr Rule kEntityUnusable{"entity-unusable", kDevices, "An entity cannot be used any more."};
inline constexpr Rule kEntityRemoved{"entity-removed", kApplications, "An entity is gone."};
inline constexpr Rule kEntityRenamed{"entity-renamed", kApplications,
                                     "An entity's name changed, and so its key in documents."};
inline constexpr Rule kEntityAdded{"entity-added", kNobody, "An entity is new."};

// The packets of an entity.
inline constexpr Rule kFlagBytes{"flag-bytes-changed", kDevices,
                                 "The flag bitmap of a write has another number of bytes."};
inline constexpr Rule kWriteLength{"write-length-changed", kDevices,
                                   "The payload of a write has another number of bytes."};
inline constexpr Rule kDecodeEnds{"decode-ends", kDevices,
                                  "A packet of devices in the field is not decoded to its end any more."};
inline constexpr Rule kPayloadLength{"payload-length-changed", kNobody,
                                     "The payload of what is read has another number of bytes."};

// Attributes.
inline constexpr Rule kFlag{"flag-changed", kDevices, "A writable attribute has another bit in the flag bitmap."};
inline constexpr Rule kPlace{"place-changed", kDevices, "An attribute lies in other bits of the payload."};
inline constexpr Rule kGroupSize{
    "group-size-changed", kDevices,
    "A bit group has another number of bytes, which moves attributes that did not change themselves."};
inline constexpr Rule kScaling{"scaling-changed", kDevices, "The ratio or addition of a number changed."};
inline constexpr Rule kLimitsNarrowed{"limits-narrowed", kDevices,
                                      "Raw values that devices in the field may send are refused."};
inline constexpr Rule kItemMoved{"item-moved", kDevices, "An item of an enum has another index."};
inline constexpr Rule kItemsRemoved{"items-removed", kDevices,
                                    "An index that devices in the field may send has no item, which ends a decode."};
inline constexpr Rule kAttributeRemoved{"attribute-removed", kApplications,
                                        "An attribute is gone, or cannot be written any more."};
inline constexpr Rule kKey{"key-changed", kApplications, "An attribute's key in documents changed."};
inline constexpr Rule kKeyTaken{"key-taken", kApplications,
                                "Another attribute has the same key in documents, and takes the place of this one."};
inline constexpr Rule kGroup{"group-changed", kApplications, "An attribute is of another group."};
inline constexpr Rule kDataType{"data-type-changed", kApplications, "An attribute's values are of another kind."};
inline constexpr Rule kItemRenamed{"item-renamed", kApplications, "The item of an index has another text."};
inline constexpr Rule kLimitsWidened{"limits-widened", kApplications,
                                     "A write can carry raw values that devices in the field do not know."};
inline constexpr Rule kItemsAdded{"items-added", kApplications,
                                  "A write can carry indices that devices in the field do not know."};
inline constexpr Rule kReadLimitsWidened{"read-limits-widened", kNobody,
                                         "The limits of a number that is only read are wider."};
inline constexpr Rule kReadItemsAdded{"read-items-added", kNobody, "An enum that is only read has more items."};
inline constexpr Rule kAttributeAdded{"attribute-added", kNobody, "An attribute is new."};
inline constexpr Rule kPosition{"position-rewritten", kNobody,
                                "A position is written differently; it means the same bits."};
inline constexpr Rule kText{"text-changed", kNobody,
                            "An id, name, text or number type changed that neither packets nor keys depend on."};

}  // namespace morvix::inspect::changes

#endif
