/// @file
/// The version 4.0 data-point protocol: translates between JSON documents of named attribute values, which an
/// application uses, and compact bit-packed packets, which device firmware uses.
///
/// A product configuration (JSON) lists entities, and for each entity its attributes: data type, group, place in
/// the payload, scaling. The operations work on one entity of such a configuration.
///
/// To send a write:
///
///     ProtocolGetEntitiesFromDevice_4_0(configuration, entities);      // 1. the configuration's entities
///     package.cmd = MorvixProtocolCommandWriteReq_4_0;
///     ProtocolEncodeEntity_4_0(entities[0], package, values);          // 2. values -> flag bitmap and payload
///     size = ProtocolPackPackage_4_0(package, buffer, bufLen);         // 3. flag bitmap and payload -> packet bytes
///     free(package.flags), free(package.value);                        // 4. the caller releases the buffers
///
/// To handle a received packet:
///
///     ProtocolUnpackPackage_4_0(data, dataLen, package);               // 1. packet bytes -> payload
///     ProtocolDecodeEntity_4_0(entities[0], package, decoded);         // 2. payload -> decoded document
///     free(package.value);                                             // 3. the caller releases the buffer
///     decoded["version"] = 4.0;                                        //    the host adds the version, writes text
///     document = ProtocolConvertReceiveResult_4_0(text, alerts, faults);           // 4. -> flattened document
///     ProtocolGetAlertsAndFaults_4_0(alerts, faults, activeAlerts, activeFaults);  // 5. -> what is active now
///
/// A host that handles many packets parses the entity once with ProtocolParseEntity_4_0 and then calls
/// ProtocolEncodeAttributes_4_0, ProtocolDecodeAttributes_4_0, or ProtocolReceivePacket_4_0, which does all five steps
/// of a receive at once, fastest with a plan from ProtocolPlanReceive_4_0.
///
/// **Failures** are reported by the result: false, 0, an empty string or an empty output. No input makes an operation
/// throw, with one exception that ProtocolGetAttrInteger64_4_0 describes. Some failures are logged through logMsgEx at
/// level 1; the parser also logs one line for every usable entity through logMsg at level 2.
///
/// **Memory**: a payload that cannot be allocated is an ordinary failure. Where strings, lists or JSON values cannot be
/// allocated, std::bad_alloc is thrown, or Json::RuntimeError for a string inside a JSON value.
///
/// **Threads**: the module has no state. Calls on different threads are safe as long as they share no output.
///
/// **JSON kinds**: a number counts as *signed integer* when it is stored as a signed integer of 32 bits, as *unsigned
/// integer* when it is stored as an unsigned integer of 32 bits, or as a signed one between 2147483648 and
/// 4294967295, and as *real* otherwise, whatever its value is.
///
/// **Strings** end at their first NUL if they are keywords, numbers, member names given as `const char*`, logged, or an
/// attribute's name by which the encoder looks up its value. Other names in documents and records may contain NULs and
/// are compared whole.

#ifndef MORVIX_PROTOCOL_INTERNAL_V4_0_H
#define MORVIX_PROTOCOL_INTERNAL_V4_0_H

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// The version of this library, "major.minor.patch". The first two numbers are the protocol's.
#define MORVIX_PROTOCOL_VERSION "4.0.0"

using byte = unsigned char;  ///< One byte of a packet or payload. With `using namespace std`, write `::byte`.
using dword = uint32_t;      ///< A packet version.

/// @name Limits
/// Limits of packets on the wire; never change.
/// @{
constexpr size_t MorvixProtocolMaxFlagBytes_4_0 = 1024;      ///< Flag bitmap of a write.
constexpr size_t MorvixProtocolMaxPayloadBytes_4_0 = 16384;  ///< Payload, sent or received.
constexpr size_t MorvixProtocolMaxBinaryBytes_4_0 = 65535;   ///< Field of a binary attribute.
constexpr size_t MorvixProtocolSubDidBytes_4_0 = 4;          ///< Sub-device id in a packet.
/// The longest packet: command, sub-device id, flag bitmap, payload.
constexpr size_t MorvixProtocolMaxPacketBytes_4_0 =
    1 + MorvixProtocolSubDidBytes_4_0 + MorvixProtocolMaxFlagBytes_4_0 + MorvixProtocolMaxPayloadBytes_4_0;
/// @}

/// How an attribute's value is encoded in the payload. The four unsigned integers are numbered 4 to 7 so that one mask
/// recognises them (ProtocolDataTypeIsUInt); never renumber.
enum tagMorvixProtocolDataType_4_0 : uint32_t {
  MorvixProtocolDataTypeUnknown_4_0 = 0,  ///< Not recognised; the parser drops such attributes.
  MorvixProtocolDataTypeBool_4_0 = 1,     ///< "bool": one bit.
  MorvixProtocolDataTypeEnum_4_0 = 2,     ///< "enum": an index into the attribute's items.
  MorvixProtocolDataTypeBinary_4_0 = 3,   ///< "binary": bytes of fixed length, base64 in documents.
  MorvixProtocolDataTypeUInt8_4_0 = 4,    ///< "uint8": a scaled unsigned integer.
  MorvixProtocolDataTypeUInt16_4_0 = 5,   ///< "uint16": a scaled unsigned integer.
  MorvixProtocolDataTypeUInt32_4_0 = 6,   ///< "uint32": a scaled unsigned integer.
  MorvixProtocolDataTypeUInt64_4_0 = 7,   ///< "uint64": a scaled unsigned integer.
};
/// See tagMorvixProtocolDataType_4_0.
using MorvixProtocolDataType_4_0 = tagMorvixProtocolDataType_4_0;

/// The purpose of a packet; its first byte on the wire. The gaps are not assigned; never renumber.
enum tagMorvixProtocolCommand_4_0 : uint32_t {
  MorvixProtocolCommandWriteReq_4_0 = 1,                     ///< Sent: write attributes.
  MorvixProtocolCommandReadReq_4_0 = 2,                      ///< Sent: read all attributes.
  MorvixProtocolCommandReadResp_4_0 = 3,                     ///< Received: all attributes, after a read.
  MorvixProtocolCommandNotifyResp_4_0 = 4,                   ///< Received: all attributes, unsolicited.
  MorvixProtocolCommandCCWriteReq_4_0 = 7,                   ///< Sent: write attributes of a sub-device.
  MorvixProtocolCommandCCReadReq_4_0 = 8,                    ///< Sent: read a sub-device.
  MorvixProtocolCommandCCNotifyResp_4_0 = 10,                ///< Named only: neither packed nor unpacked.
  MorvixProtocolCommandCCAddSubDeviceReq_4_0 = 11,           ///< Sent: let a sub-device join.
  MorvixProtocolCommandCCDelSubDeviceReq_4_0 = 12,           ///< Sent: remove a sub-device.
  MorvixProtocolCommandCCGetSubDevicesReq_4_0 = 13,          ///< Sent: list the sub-devices.
  MorvixProtocolCommandCCGetSubDevicesResp_4_0 = 14,         ///< Named only: neither packed nor unpacked.
  MorvixProtocolCommandCCNotifySubDevicesResp_4_0 = 15,      ///< Named only: neither packed nor unpacked.
  MorvixProtocolCommandCCNotifySubDeviceOnlineResp_4_0 = 16  ///< Named only: neither packed nor unpacked.
};
/// See tagMorvixProtocolCommand_4_0.
using MorvixProtocolCommand_4_0 = tagMorvixProtocolCommand_4_0;

/// The group an attribute belongs to. Single bits, so that a set of groups is the bitwise OR of its members; the
/// numbers appear in the decoded document as well; never renumber.
enum tagMorvixProtocolType_4_0 : uint32_t {
  MorvixProtocolTypeUnknown_4_0 = 0,         ///< Not recognised; the parser drops such attributes.
  MorvixProtocolTypeStatusWritable_4_0 = 1,  ///< "status_writable": state that the application may set.
  MorvixProtocolTypeStatusReadonly_4_0 = 2,  ///< "status_readonly": state that the device reports.
  MorvixProtocolTypeAlert_4_0 = 4,           ///< "alert": a condition worth telling the user.
  MorvixProtocolTypeFault_4_0 = 8            ///< "fault": a defect.
};
/// See tagMorvixProtocolType_4_0.
using MorvixProtocolType_4_0 = tagMorvixProtocolType_4_0;

/// The unit in which a position's length is counted.
enum tagMorvixProtocolUnit_4_0 : int32_t {
  MorvixProtocolUnitUnknown_4_0 = -1,  ///< Not recognised; such a position locates nothing.
  MorvixProtocolUnitByte_4_0 = 0,      ///< "byte", or an empty string.
  MorvixProtocolUnitBit_4_0 = 1        ///< "bit".
};
/// See tagMorvixProtocolUnit_4_0.
using MorvixProtocolUnit_4_0 = tagMorvixProtocolUnit_4_0;

/// Where an attribute's value lies in the payload.
///
/// Byte unit: `len` bytes from `byte_offset` on, most significant byte first.
///
/// Bit unit: `len` bits of a bit group. A group is `groupByteLength` bytes from `byte_offset` on, read as one
/// big-endian number, so bits count from the least significant bit of the group's *last* byte. A group of 2 bytes at
/// byte 2, and in it a field of `bit_offset` 5 and `len` 6:
///
///     payload       byte 2                            byte 3
///     group bit     15  14  13  12  11  10   9   8     7   6   5   4   3   2   1   0
///     field bit                         F5  F4  F3    F2  F1  F0
///
struct tagMorvixProtocolPosition_4_0 {
  int32_t byte_offset = 0;  ///< First byte of the value, or of its bit group, from the payload's start.
  int32_t bit_offset = 0;   ///< Bit unit: the group bit that holds the value's least significant bit.
  MorvixProtocolUnit_4_0 unit = MorvixProtocolUnitByte_4_0;  ///< What `len` counts.
  int32_t len = 0;                                           ///< Length of the value, in `unit`s.
  size_t groupByteLength = 0;  ///< Bool and enum: length of the bit group in bytes, computed by the parser. Else 0.
};
/// See tagMorvixProtocolPosition_4_0.
using MorvixProtocolPosition_4_0 = tagMorvixProtocolPosition_4_0;

/// The scaling of a number: user value = raw value * `ratio` + `addition`. Raw values from `min` to `max` are accepted
/// if they are on the step grid. `min`, `max` and `step` are compared as unsigned 64-bit; nothing is accepted unless
/// `max` is below 2 to the power 52 and at least `min` + `step`.
struct tagMorvixProtocolUIntSpec_4_0 {
  int64_t min = 0;      ///< Smallest accepted raw value.
  int64_t max = 0;      ///< Largest accepted raw value.
  int32_t step = 0;     ///< Raw values are `min`, `min` + `step` and so on, and `max`. 1 in every scaling that is read.
  double ratio = 0;     ///< Multiplier from raw to user value.
  double addition = 0;  ///< Offset, added after the multiplication.
};
/// See tagMorvixProtocolUIntSpec_4_0.
using MorvixProtocolUIntSpec_4_0 = tagMorvixProtocolUIntSpec_4_0;

/// One data point of a product. `uint_spec` is used by numbers only, `enumList` by enums only; in attributes of other
/// data types the parser leaves those of an earlier attribute.
struct tagMorvixProtocolAttribute_4_0 {
  int32_t id = 0;            ///< Identifier in the configuration; not used by the codec.
  std::string name;          ///< Key of the value in documents.
  std::string display_name;  ///< Name for people; key of alerts and faults in the decoded document.
  std::string desc;          ///< Description; not used by the codec.
  MorvixProtocolType_4_0 type = MorvixProtocolTypeUnknown_4_0;               ///< The group: one bit.
  MorvixProtocolDataType_4_0 data_type = MorvixProtocolDataTypeUnknown_4_0;  ///< The encoding of the value.
  MorvixProtocolPosition_4_0 position;                                       ///< The place in the payload.
  MorvixProtocolUIntSpec_4_0 uint_spec;                                      ///< Numbers: the scaling.
  std::vector<std::string> enumList;  ///< Enums: the items in order; item i is the number i in the payload.
};
/// See tagMorvixProtocolAttribute_4_0.
using MorvixProtocolAttribute_4_0 = tagMorvixProtocolAttribute_4_0;

/// The identity of the entity whose attributes are in use.
struct tagMorvixProtocolEntity_4_0 {
  int32_t id = 0;            ///< Identifier in the configuration; not used by the codec.
  std::string name;          ///< Key of the entity in documents.
  std::string display_name;  ///< Name for people; not used by the codec.
};
/// See tagMorvixProtocolEntity_4_0.
using MorvixProtocolEntity_4_0 = tagMorvixProtocolEntity_4_0;

/// One packet in memory, between the codec and the framing. The two buffers come from the C heap and are the
/// caller's: release each with `free`. No operation of this module releases them; MorvixProtocolOwnedPackage_4_0
/// does when it is destroyed.
struct tagMorvixProtocolPackage_4_0 {
  MorvixProtocolCommand_4_0 cmd = MorvixProtocolCommand_4_0(0);  ///< The command; 0 is none.
  int32_t subDid = 0;         ///< Sub-device id. Travels in host byte order, unlike every other number.
  byte needInsertSubDid = 0;  ///< Non-zero when `subDid` is to be sent.
  byte* flags = nullptr;      ///< Flag bitmap: bit i (in group bit order) says that writable attribute i is set.
  size_t sizeFlags = 0;       ///< Valid bytes at `flags`.
  byte* value = nullptr;      ///< The payload.
  size_t sizeValue = 0;       ///< Valid bytes at `value`.
};
/// See tagMorvixProtocolPackage_4_0.
using MorvixProtocolPackage_4_0 = tagMorvixProtocolPackage_4_0;

/// A package that releases its buffers when it is destroyed. It can be passed wherever a package is expected. Encoding
/// and unpacking overwrite the pointers without releasing them, so pass it empty: new, or after Reset(). A moved-from
/// package is empty.
struct MorvixProtocolOwnedPackage_4_0 : MorvixProtocolPackage_4_0 {
  MorvixProtocolOwnedPackage_4_0() = default;
  MorvixProtocolOwnedPackage_4_0(const MorvixProtocolOwnedPackage_4_0&) = delete;
  MorvixProtocolOwnedPackage_4_0& operator=(const MorvixProtocolOwnedPackage_4_0&) = delete;
  /// Takes the buffers over.
  MorvixProtocolOwnedPackage_4_0(MorvixProtocolOwnedPackage_4_0&& other) noexcept : MorvixProtocolPackage_4_0(other) {
    other.Record() = MorvixProtocolPackage_4_0();
  }
  /// Releases its own buffers and takes the others over.
  MorvixProtocolOwnedPackage_4_0& operator=(MorvixProtocolOwnedPackage_4_0&& other) noexcept {
    std::swap(Record(), other.Record());
    if (this != &other) other.Reset();
    return *this;
  }
  ~MorvixProtocolOwnedPackage_4_0() { Reset(); }

  /// Releases the buffers and clears every field.
  void Reset() {
    std::free(flags);
    std::free(value);
    Record() = MorvixProtocolPackage_4_0();
  }

 private:
  MorvixProtocolPackage_4_0& Record() { return *this; }
};

/// One active alert or fault.
struct TavelReceiveInfo {
  std::string name;   ///< The attribute's key in the decoded document, which is its display name.
  int32_t value = 0;  ///< Its value; never 0 in a record that this module makes.
};

/// True exactly for the four unsigned integer types, 4 to 7.
bool ProtocolDataTypeIsUInt(MorvixProtocolDataType_4_0 type);

/// @name Lenient readers of one member of a JSON object
/// A number in a document may be a JSON number or a string. Each reader returns false when `attr` is not an object,
/// when `strKey` is null, or when the member is missing, null, of a kind that the reader does not accept, or a string
/// that does not begin with a number; the output is then untouched (ProtocolGetAttrObject_4_0 differs). A string that
/// ends before a number begins is a success that leaves the output untouched, so preset the output: for integers and
/// doubles these are empty and blank strings, for hexadecimal numbers "", "0", and "0x" followed by nothing or blanks.
/// @{

/// Integers of 32 bits; bools as 1 and 0; unsigned integers above 2147483647 wrap to negative; strings are read as
/// decimal, 0x hexadecimal or 0 octal ("%i"); a number out of range saturates at 64 bits and is cut to 32. Reals are
/// refused, and so are integers outside 32 bits, which count as real.
bool ProtocolGetAttrInteger_4_0(const Json::Value& attr, const char* strKey, int32_t& value);

/// Like ProtocolGetAttrInteger_4_0 with 64 bits ("%lli"), where unsigned integers do not wrap; also integers beyond 32
/// bits, saturated to 64 bits signed, and reals other than 0.0, truncated toward zero and saturated, a NaN as 0. Throws
/// Json::LogicError when the member is an array or an object: the one error that passes through this module.
bool ProtocolGetAttrInteger64_4_0(const Json::Value& attr, const char* strKey, int64_t& value);

/// Unsigned integers, and strings that begin with a lower-case 0x and hexadecimal digits. Signed integers, which
/// includes all plain numbers up to 2147483647, are refused.
bool ProtocolGetAttrHex_4_0(const Json::Value& attr, const char* strKey, dword& value);

/// Numbers of every kind, and strings, read with "%lf". Bools are refused.
bool ProtocolGetAttrDouble_4_0(const Json::Value& attr, const char* strKey, double& value);

/// Strings only; the output becomes the whole string, which may contain NULs.
bool ProtocolGetAttrString_4_0(const Json::Value& attr, const char* strKey, std::string& value);

/// The member itself. When `attr` is an object, the output becomes the member of whatever kind, or null when it is
/// missing; the result is true only if the member is an object. The output may be `attr` itself.
bool ProtocolGetAttrObject_4_0(const Json::Value& attr, const char* strKey, Json::Value& value);
/// @}

/// Serializes a request to packet bytes: command, sub-device id if the command has one, flag bitmap, payload.
///
/// `bufLen` is checked against the packet *without* the 4 bytes of the sub-device id, so `buffer` must have room for 4
/// bytes more than `bufLen` says whenever `needInsertSubDid` is set. The flag bitmap may have up to 1024 bytes, the
/// payload up to 16384, and a write (1, 7) needs at least 2 bytes of both together. A null `flags` or `value` with a
/// size counts in the result, but its bytes are not written and what follows it moves up.
///
/// @return the packet's size in bytes. 0 when `buffer` is null, a size exceeds these limits, the packet does not fit,
/// or `needInsertSubDid` is not set in a sub-device request (8, 12); and, with the line "Invalid command %d", when the
/// command is not one of 1, 2, 7, 8, 11, 12, 13.
[[nodiscard]] size_t ProtocolPackPackage_4_0(MorvixProtocolPackage_4_0 package, byte* buffer, size_t bufLen);

/// Parses a received packet. `package` is cleared first, without releasing its buffers; then it holds the command, and
/// as `value` a new C-heap copy of all bytes after the command, which the caller releases with `free`.
///
/// @return true for a read response or notification (3, 4) of 2 to 16385 bytes. On false there is nothing to release: a
/// null `data` or a shorter packet leaves `package` untouched; another command leaves only `cmd` set; a packet that is
/// too long, or for which there is no memory, leaves `cmd` and `sizeValue` set.
[[nodiscard]] bool ProtocolUnpackPackage_4_0(const byte* data, size_t dataLen, MorvixProtocolPackage_4_0& package);

/// Encodes the values in `root` of the entity's writable attributes: `root[entity name][attribute name]`.
///
/// Bools and enums take an integer of 32 bits, a JSON bool (1 or 0) or a decimal string, where "" is 0; numbers take a
/// number or a string in user units; binaries take a base64 string. A value that is missing or of another kind is
/// silently left out; its flag bit stays 0.
///
/// Pass a package without buffers. `flags` and `value` become new zero-filled C-heap buffers, which the caller
/// releases with `free` *also when nothing was encoded*; earlier buffers are not released. `sizeFlags` and `sizeValue`
/// are then non-zero exactly when at least one value was written and none was refused. The other fields keep their
/// values. The whole package keeps its values when the entity is unusable, when its payload has no bytes, or when there
/// is no memory for it.
///
/// Logged in addition to the parser's lines, each ending the call: "Get entity info failed.", "No data will encode.",
/// "Write bool value failed.", "Invalid enum value: %i, range: 0-%i", "Write enum value failed.", "Write binary value
/// failed.", "Validate uint value failed.", "Write uint value failed.", "Attribute type is unknown, skip."
///
/// Throws what ProtocolGetAttrInteger64_4_0 throws, before anything is allocated.
void ProtocolEncodeEntity_4_0(const Json::Value& entity, MorvixProtocolPackage_4_0& package, const Json::Value& root);

/// Decodes all attributes of the entity from the payload of `package` into
/// `decodeResult[entity name][key] = {"type": group, "value": value}`.
///
/// The key is the attribute's name, or its display name for alerts and faults. The value is a bool for bools and a
/// string for all others: an enum's index, a number in user units, a binary's bytes in base64. `decodeResult` is not
/// cleared; if it is not an object, it becomes one when a value is stored or removed. It may be `entity` itself, or
/// contain it.
///
/// A number or enum outside the payload, and a number that its scaling refuses, are silently left out. Logged in
/// addition to the parser's lines, each ending the call: "No data to decode." and "Get entity info failed." (document
/// untouched), "Invalid enum value: %i, range: 0-%i" (earlier attributes stay), "Unknown attribute type." and "Decode
/// value is invalid." (a bool or binary that cannot be read). With the last two the whole entity is removed from the
/// document first, then the line is logged.
///
/// Throws what ProtocolGetAttrInteger64_4_0 throws, with the document untouched.
void ProtocolDecodeEntity_4_0(const Json::Value& entity, MorvixProtocolPackage_4_0 package, Json::Value& decodeResult);

/// @name Parse once, use many times
/// The one-call operations are these two steps. Parsing costs about as much as decoding one packet, so a host that
/// handles many packets of one product parses its entity once and keeps the records, which may be shared between
/// threads.
/// @{

/// The entity record, and the attributes of the groups in `matchTypes` (an OR of MorvixProtocolType_4_0 values) in
/// configuration order, *appended* to `attributes`. Decoding takes all groups (15), encoding the writable ones (1):
/// parse once for each, since the size of a bit group depends on which attributes are selected.
///
/// An attribute that cannot be used is skipped with the line "Warning: '%s' is invalid, skip.", which names the invalid
/// member. An attribute inherits the scaling and items last read for an earlier one, and is skipped when the inherited
/// scaling lacks a member.
///
/// @return false, with a line that gives the reason, when the entity is unusable: it is not an object, or "id", "name",
/// "display_name" or the array "attrs" is missing. `attributes` is then untouched and `entityInfo` holds what was read
/// before the failure. Throws what ProtocolGetAttrInteger64_4_0 throws, with the attributes before that one appended.
[[nodiscard]] bool ProtocolParseEntity_4_0(const Json::Value& entity, int matchTypes,
                                           std::vector<MorvixProtocolAttribute_4_0>& attributes,
                                           MorvixProtocolEntity_4_0& entityInfo);

/// What ProtocolEncodeEntity_4_0 does after parsing; `attributes` are the writable ones, in configuration order.
/// Logs under the name "ProtocolEncodeEntity_4_0".
void ProtocolEncodeAttributes_4_0(const MorvixProtocolEntity_4_0& entityInfo,
                                  const std::vector<MorvixProtocolAttribute_4_0>& attributes,
                                  MorvixProtocolPackage_4_0& package, const Json::Value& root);

/// What ProtocolDecodeEntity_4_0 does after parsing, including the test for an empty payload; `attributes` are those of
/// all groups, in configuration order. Logs under the name "ProtocolDecodeEntity_4_0".
void ProtocolDecodeAttributes_4_0(const MorvixProtocolEntity_4_0& entityInfo,
                                  const std::vector<MorvixProtocolAttribute_4_0>& attributes,
                                  const MorvixProtocolPackage_4_0& package, Json::Value& decodeResult);
/// @}

/// Copies the member "entities" of a product configuration, or null when it is missing. True when it is an array. The
/// output may be `device` itself.
bool ProtocolGetEntitiesFromDevice_4_0(const Json::Value& device, Json::Value& entities);

/// Turns a receive document, which is a decoded document with the member "version" set to 4.0, written as JSON text,
/// into the application's document: each item of an entity is replaced by its "value". Items whose "type" is the
/// integer 4 go to `alerts` instead, those of 8 to `faults`, without "type" and with their key as "name".
///
/// `alerts` and `faults` always become arrays. Entities and items come in the byte order of their names. Anything after
/// the document is ignored.
///
/// @return the application's document as one line of JSON text. An empty string when `result` is not a JSON object,
/// when its "version" is not the real number 4.0 (the integer 4 is not), or when memory for a string runs out while
/// `result` is read.
std::string ProtocolConvertReceiveResult_4_0(const std::string& result, Json::Value& alerts, Json::Value& faults);

/// Appends the active elements of `alerts` to `valert`, in order: those with a string "name" whose "value" is a
/// non-zero signed integer, true (1), or a string that reads as a non-zero integer ("%i", saturated at 64 bits and cut
/// to 32). All others, reals included, are silently ignored.
void ProtocolGetAlertsOrFaults_4_0(const Json::Value& alerts, std::vector<TavelReceiveInfo>& valert);

/// ProtocolGetAlertsOrFaults_4_0 on `alerts` into `valert`, then on `faults` into `vfault`.
void ProtocolGetAlertsAndFaults_4_0(const Json::Value& alerts, const Json::Value& faults,
                                    std::vector<TavelReceiveInfo>& valert, std::vector<TavelReceiveInfo>& vfault);

/// The application's document as text, and the active alerts and faults (appended), of one received packet, in one pass
/// over its bytes. It builds a document only where a name contains a quotation mark, a backslash, or a character that
/// is not printable ASCII, or where the locale's numbers do; and where both lists are the same one.
///
/// Exactly what these calls give, log lines included, as long as C++'s global locale is the classic one:
/// ProtocolUnpackPackage_4_0, ProtocolDecodeAttributes_4_0 into an empty document, its member "version" set to 4.0,
/// written as text, ProtocolConvertReceiveResult_4_0, ProtocolGetAlertsAndFaults_4_0. `attributes` are those of all
/// groups. `document` is replaced; reuse it to reuse its memory. It must not be part of the inputs.
///
/// @return false, with `document` empty and the lists untouched, when the packet is not a read response or notification
/// of 2 to 16385 bytes.
[[nodiscard]] bool ProtocolReceivePacket_4_0(const MorvixProtocolEntity_4_0& entityInfo,
                                             const std::vector<MorvixProtocolAttribute_4_0>& attributes,
                                             const byte* data, size_t dataLen, std::string& document,
                                             std::vector<TavelReceiveInfo>& valert,
                                             std::vector<TavelReceiveInfo>& vfault);

/// What ProtocolReceivePacket_4_0 would compute for every packet of one product, computed once: the order of the names,
/// their text in the document, how each value is read. A value that owns its strings; copies share them. Any number of
/// threads may use a plan at once. One that is default-constructed or moved from is that of no attributes.
class MorvixProtocolReceivePlan_4_0 {
  friend MorvixProtocolReceivePlan_4_0 ProtocolPlanReceive_4_0(
      const MorvixProtocolEntity_4_0& entityInfo, const std::vector<MorvixProtocolAttribute_4_0>& attributes);
  friend bool ProtocolReceivePacket_4_0(const MorvixProtocolReceivePlan_4_0& plan, const byte* data, size_t dataLen,
                                        std::string& document, std::vector<TavelReceiveInfo>& valert,
                                        std::vector<TavelReceiveInfo>& vfault);

  std::shared_ptr<const void> plan_;
};

/// The plan of an entity; `attributes` are those of all groups, in configuration order. The records are not needed
/// afterwards.
MorvixProtocolReceivePlan_4_0 ProtocolPlanReceive_4_0(const MorvixProtocolEntity_4_0& entityInfo,
                                                      const std::vector<MorvixProtocolAttribute_4_0>& attributes);

/// ProtocolReceivePacket_4_0 with the records from which the plan was made: the same results and log lines at about
/// half of the cost.
[[nodiscard]] bool ProtocolReceivePacket_4_0(const MorvixProtocolReceivePlan_4_0& plan, const byte* data,
                                             size_t dataLen, std::string& document,
                                             std::vector<TavelReceiveInfo>& valert,
                                             std::vector<TavelReceiveInfo>& vfault);

/// Replaces `devices` by an array of those known devices (TavelConfig::GetAllDevices) whose "protocolType" is
/// `protocolName`, letter case included, and whose "packetVersion" is `packetVersion`. The strings "", "0" and "0x" are
/// version 0.
///
/// @return false, with `devices` an empty array, when `protocolName` is null or empty or the known devices are null.
bool ProtocolFilterDevices_4_0(const char* protocolName, dword packetVersion, Json::Value& devices);

/// Finds the first device of the array `devices` whose product key is `deviceKey`.
///
/// @return true with the device in `device`. False when no device has the key: `device` then holds the *last* element
/// of the array. False with `device` untouched when `deviceKey` is null or empty or there are no elements.
bool ProtocolGetDevice_4_0(const Json::Value& devices, const char* deviceKey, Json::Value& device);

/// The product key of a device: its string "product_key" ("Default" when that is empty); or, when "product_key" is an
/// object, the string in its member "debug" or "release", as TavelConfig::IsDebug() selects; else an empty string.
std::string ProtocolGetProductKey_4_0(const Json::Value& device);

/// The non-empty product keys of the objects in `devices`, in order, including repeats.
std::vector<std::string> ProtocolGetProductList_4_0(const Json::Value& devices);

#endif
