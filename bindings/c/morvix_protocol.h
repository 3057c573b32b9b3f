/** @file
 * The version 4.0 data-point protocol for other languages: one narrow C interface, in C99 and C++.
 *
 * A product configuration (JSON) lists entities; each entity lists attributes. An entity is opened once, which parses
 * it, and then encodes values into packets and decodes packets into documents:
 *
 *     const char* values = "{\"kettle\":{\"power\":true}}";
 *     if (morvix_entity_open(text, size, "kettle", &kettle, &message) != MORVIX_OK) ...
 *     morvix_free(message);
 *     status = morvix_encode(kettle, values, strlen(values), 1, NULL, &packet, &message);
 *     morvix_free(message);
 *     morvix_free(packet.data);
 *     morvix_entity_close(kettle);
 *
 * **Results.** Every function that can fail returns a status. On any status but MORVIX_OK its outputs are null and 0.
 * Nothing throws and nothing aborts, whatever the input. A null pointer where an input or output is required is
 * MORVIX_BAD_INPUT, except that data of size 0 may be null.
 *
 * **Messages.** Where a function has a parameter `message`, it may be null. Otherwise it is set to null, or to a
 * string to be released with morvix_free: after a failure why the call failed, after a success the module's warnings of
 * this call; one a line, without a line end after the last one. It is UTF-8; names and values from outside are escaped,
 * so that they cannot forge a line. After MORVIX_NO_MEMORY there may be none.
 *
 * **JSON** is UTF-8, with nothing after it. Comments are allowed; so are a byte order mark and a comma after the last
 * member, except in a document to be converted. A NUL byte, bytes that are not UTF-8 and text that is not JSON are
 * MORVIX_BAD_INPUT. JSON that is returned is compact ASCII.
 *
 * **Memory.** What is returned is released with morvix_free, entities with morvix_entity_close. Inputs are only read,
 * and only during the call. When there is not enough memory to read a number with a fractional part, the JSON reader
 * takes it for malformed: then the call ends with MORVIX_BAD_INPUT instead of MORVIX_NO_MEMORY.
 *
 * **Threads.** Every function may be called on any thread at any time. An entity never changes after it was opened, so
 * any number of threads may use it at once; close it when none does.
 */
#ifndef MORVIX_PROTOCOL_H
#define MORVIX_PROTOCOL_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define MORVIX_API __attribute__((visibility("default")))
#else
#define MORVIX_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** One entity of a product configuration, ready for use. */
typedef struct morvix_entity morvix_entity;

/** How a call ended. Never renumbered. */
typedef enum {
  MORVIX_OK = 0,        /**< Done. */
  MORVIX_REFUSED = 1,   /**< Well-formed input that the protocol does not accept: a value, a packet. */
  MORVIX_BAD_INPUT = 2, /**< Input that is malformed: text that is not JSON, an unusable entity, a null pointer. */
  MORVIX_NO_MEMORY = 3  /**< Not enough memory. */
} morvix_status;

/** Bytes or text of a result. data[size] is 0, so that text is a string too. Release with morvix_free(data). */
typedef struct {
  uint8_t* data; /**< Null after a failure. */
  size_t size;   /**< Without the 0 at the end. */
} morvix_bytes;

/** The number of this interface, 1. A library of another number must not be called. */
MORVIX_API int morvix_abi(void);

/** The library's version, "major.minor.patch". Never released. */
MORVIX_API const char* morvix_version(void);

/** Releases data of morvix_bytes, or a message. Null is harmless. */
MORVIX_API void morvix_free(void* memory);

/**
 * Lists the entities of a configuration in their order: [{"id": integer, "name": string, "displayName": string}]. An
 * entity without a usable "id", "name", "display_name" or "attrs" cannot be opened; it is left out, with a warning.
 *
 * MORVIX_BAD_INPUT: not JSON, or not an object with an array "entities".
 */
MORVIX_API morvix_status morvix_entities(const char* configuration, size_t size, morvix_bytes* json, char** message);

/**
 * Opens one entity of a configuration, to be closed with morvix_entity_close. The configuration is not needed
 * afterwards. The warnings are those of the parser about attributes that it drops; see morvix_entity_describe.
 *
 * `name` is the entity's name, or null when there is one entity only.
 *
 * MORVIX_BAD_INPUT: not a configuration; no entity of this name, or more than one; no name, but several entities; an
 * unusable entity; a "min" or "max" that is an array or object; records of more than 2,000,000 enum items, counting
 * those that attributes inherit.
 */
MORVIX_API morvix_status morvix_entity_open(const char* configuration, size_t size, const char* name,
                                            morvix_entity** entity, char** message);

/** Releases an entity. Null is harmless. */
MORVIX_API void morvix_entity_close(morvix_entity* entity);

/**
 * Describes an entity:
 *
 *     {"name", "displayName", "id", "payloadBytes", "writeBytes",
 *      "attributes": [{"name", "displayName", "description", "id", "group", "type", "flag",
 *                      "place": {"firstBit", "bits"}, "writePlace": {"firstBit", "bits"},
 *                      "min", "max", "ratio", "addition", "items"}],
 *      "dropped": [{"index", "name", "member"}]}
 *
 * `payloadBytes` is the length of a payload of all attributes, `writeBytes` that of a write. Attributes are in
 * configuration order. `group` is "status_writable", "status_readonly", "alert" or "fault"; `type` is "bool", "enum",
 * "binary", "uint8", "uint16", "uint32" or "uint64". `flag` is the attribute's bit in the flag bitmap of a write, for
 * writable ones. Places count bits from the most significant bit of byte 0; `writePlace` is there where a write has the
 * attribute at another place, and neither where it has no place. `min` and `max` are raw values; the value in user
 * units is raw * ratio + addition; all four are for numbers (ratio and addition where they are finite), `items` for
 * enums. `dropped` are the elements of "attrs" that the parser drops, with the member that it finds invalid.
 */
MORVIX_API morvix_status morvix_entity_describe(const morvix_entity* entity, morvix_bytes* json);

/**
 * Encodes a write. `values` is an entity value document, {ENTITY: {ATTRIBUTE: VALUE}}; other entities in it are passed
 * over. Bools and enums take an integer, true, false or decimal text; numbers a number in user units or the text of
 * one; binaries base64 text. Text is read as far as it is a number, as the protocol module does: "79,5" is 79, "" is 0.
 *
 * `command` is 1, or 7 for a write to a sub-device. `sub_device` is the id to insert, or null for none.
 *
 * MORVIX_REFUSED: a value is refused or of a kind that its attribute does not take, a name is not that of a writable
 * attribute, or there is nothing to write. The message names the attribute, the value and what is expected.
 * MORVIX_BAD_INPUT: another command, or `values` is not a JSON object, or its member for this entity is not one.
 */
MORVIX_API morvix_status morvix_encode(const morvix_entity* entity, const char* values, size_t size, int command,
                                       const int32_t* sub_device, morvix_bytes* packet, char** message);

/**
 * Makes a request without values: 2 (read), 11 (let a sub-device join), 13 (list the sub-devices), each without a
 * sub-device id; 8 (read a sub-device) and 12 (remove a sub-device), each with one. All else is MORVIX_BAD_INPUT.
 */
MORVIX_API morvix_status morvix_request(int command, const int32_t* sub_device, morvix_bytes* packet, char** message);

/**
 * Decodes a received packet into the decoded document, {ENTITY: {KEY: {"type": GROUP, "value": VALUE}}}. The key is the
 * attribute's name, or its display name for alerts and faults; the group is 1 (writable), 2 (read-only), 4 (alert) or 8
 * (fault). A value is a bool for bools and a string for all others: an enum's index, a number in user units, base64.
 * Left out are numbers out of their range, and what decoding did not reach: it ends at an enum's index without an
 * item, and gives nothing at all where the packet ends before a bool or binary.
 *
 * MORVIX_REFUSED: not a read response (3) or notification (4) of 2 to 16385 bytes.
 */
MORVIX_API morvix_status morvix_decode(const morvix_entity* entity, const uint8_t* packet, size_t size,
                                       morvix_bytes* document, char** message);

/**
 * Turns a received packet into what an application is given. `document` is the application's document as the module
 * writes it, {ENTITY: {NAME: VALUE}, "version": 4.0} with a line end; `active` is what is active now,
 * {"alerts": [{"name": string, "value": integer}], "faults": [...]}.
 *
 * MORVIX_REFUSED: as morvix_decode.
 */
MORVIX_API morvix_status morvix_receive(const morvix_entity* entity, const uint8_t* packet, size_t size,
                                        morvix_bytes* document, morvix_bytes* active, char** message);

/**
 * morvix_receive for many packets, which lie back to back in `packets`: packet i is from offsets[i] to offsets[i + 1],
 * so that there are count + 1 offsets, which never descend.
 *
 * `lines` gets one line of JSON a packet, each with its line end: {"document": ..., "alerts": [...], "faults": [...]},
 * with "warnings": [string...] where there are any, or {"error": string} for a packet that is refused.
 *
 * MORVIX_BAD_INPUT: offsets that descend. Refused packets do not fail the call.
 */
MORVIX_API morvix_status morvix_receive_many(const morvix_entity* entity, const uint8_t* packets, const size_t* offsets,
                                             size_t count, morvix_bytes* lines);

/**
 * Decodes many packets, given as for morvix_receive_many, into a table of numbers. values[a * count + i] is
 * attribute a, in the order of morvix_entity_describe, of packet i: 0 or 1 for bools, the index of enums, numbers in
 * user units as their text in the document reads; NaN where the document has no value, and for binaries. refused[i] is
 * 1 for a packet that is refused, otherwise 0. The caller provides both arrays, of (attributes * count) and of count
 * elements; after a failure they hold anything.
 *
 * MORVIX_BAD_INPUT: offsets that descend.
 */
MORVIX_API morvix_status morvix_receive_table(const morvix_entity* entity, const uint8_t* packets,
                                              const size_t* offsets, size_t count, double* values, uint8_t* refused);

/**
 * Turns a receive document (a decoded document with the member "version": 4.0) into the application's document, with a
 * line end, and `lists` of all its alerts and faults, active or not: {"alerts": [{"name", "value"}], "faults": [...]}.
 *
 * MORVIX_REFUSED: "version" is missing or not the real number 4.0. MORVIX_BAD_INPUT: not a JSON object.
 */
MORVIX_API morvix_status morvix_convert(const char* document, size_t size, morvix_bytes* flattened, morvix_bytes* lists,
                                        char** message);

/**
 * Takes the module's log lines. `function` is the reporting operation, or null; `line` is its text. Both are valid
 * during the call only. It may be called on several threads at once, and may itself call any function of this
 * interface.
 */
typedef void (*morvix_log_sink)(void* context, int level, const char* function, const char* line);

/**
 * Sends the log lines of all later calls, on all threads, up to a level (1: warnings and failures, 2: information as
 * well) to `sink`. A null sink is silent, which is the default. A call that is under way on another thread may still
 * use the earlier sink, so keep its context until such calls have returned.
 */
MORVIX_API void morvix_set_log(morvix_log_sink sink, void* context, int level);

#ifdef __cplusplus
}
#endif

#endif
