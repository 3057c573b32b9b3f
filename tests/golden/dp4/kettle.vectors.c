/* Test vectors of kettle: values in user units, and the packets that stand for them. */

#include <stddef.h>

#define KETTLE_WRITES_COUNT 15
static const struct {
  const char* values;
  size_t size;
  unsigned char packet[4];
} kettle_writes[] = {
    {"{\"power\": false}", 4, {0x01, 0x01, 0x00, 0x00}},
    {"{\"power\": true}", 4, {0x01, 0x01, 0x01, 0x00}},
    {"{\"program\": 0}", 4, {0x01, 0x02, 0x00, 0x00}},
    {"{\"program\": 1}", 4, {0x01, 0x02, 0x02, 0x00}},
    {"{\"program\": 2}", 4, {0x01, 0x02, 0x04, 0x00}},
    {"{\"target\": 40}", 4, {0x01, 0x04, 0x00, 0x00}},
    {"{\"target\": 40.5}", 4, {0x01, 0x04, 0x00, 0x01}},
    {"{\"target\": 70}", 4, {0x01, 0x04, 0x00, 0x3c}},
    {"{\"target\": 99.5}", 4, {0x01, 0x04, 0x00, 0x77}},
    {"{\"target\": 100}", 4, {0x01, 0x04, 0x00, 0x78}},
    {"{\"power\": false, \"program\": 0, \"target\": 40}", 4, {0x01, 0x07, 0x00, 0x00}},
    {"{\"power\": true, \"program\": 1, \"target\": 40.5}", 4, {0x01, 0x07, 0x03, 0x01}},
    {"{\"power\": false, \"program\": 2, \"target\": 70}", 4, {0x01, 0x07, 0x04, 0x3c}},
    {"{\"power\": true, \"program\": 0, \"target\": 99.5}", 4, {0x01, 0x07, 0x01, 0x77}},
    {"{\"power\": false, \"program\": 1, \"target\": 100}", 4, {0x01, 0x07, 0x02, 0x78}},
};

#define KETTLE_NOTIFICATIONS_COUNT 19
static const struct {
  const char* values;
  const char* document;
  size_t size;
  unsigned char packet[7];
} kettle_notifications[] = {
    {"{\"power\": false, \"program\": 0, \"target\": 40, \"temperature\": -20, \"low_water\": false, \"lid_open\": false, \"sensor\": false}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":false},\"Low water\":{\"type\":4,\"value\":false},\"Sensor broken\":{\"type\":8,\"value\":false},\"power\":{\"type\":1,\"value\":false},\"program\":{\"type\":1,\"value\":\"0\"},\"target\":{\"type\":1,\"value\":\"40\"},\"temperature\":{\"type\":2,\"value\":\"-20\"}}}", 7, {0x04, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}},
    {"{\"power\": true, \"program\": 0, \"target\": 40, \"temperature\": -20, \"low_water\": false, \"lid_open\": false, \"sensor\": false}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":false},\"Low water\":{\"type\":4,\"value\":false},\"Sensor broken\":{\"type\":8,\"value\":false},\"power\":{\"type\":1,\"value\":true},\"program\":{\"type\":1,\"value\":\"0\"},\"target\":{\"type\":1,\"value\":\"40\"},\"temperature\":{\"type\":2,\"value\":\"-20\"}}}", 7, {0x04, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00}},
    {"{\"power\": false, \"program\": 1, \"target\": 40, \"temperature\": -20, \"low_water\": false, \"lid_open\": false, \"sensor\": false}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":false},\"Low water\":{\"type\":4,\"value\":false},\"Sensor broken\":{\"type\":8,\"value\":false},\"power\":{\"type\":1,\"value\":false},\"program\":{\"type\":1,\"value\":\"1\"},\"target\":{\"type\":1,\"value\":\"40\"},\"temperature\":{\"type\":2,\"value\":\"-20\"}}}", 7, {0x04, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00}},
    {"{\"power\": false, \"program\": 2, \"target\": 40, \"temperature\": -20, \"low_water\": false, \"lid_open\": false, \"sensor\": false}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":false},\"Low water\":{\"type\":4,\"value\":false},\"Sensor broken\":{\"type\":8,\"value\":false},\"power\":{\"type\":1,\"value\":false},\"program\":{\"type\":1,\"value\":\"2\"},\"target\":{\"type\":1,\"value\":\"40\"},\"temperature\":{\"type\":2,\"value\":\"-20\"}}}", 7, {0x04, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00}},
    {"{\"power\": false, \"program\": 0, \"target\": 40.5, \"temperature\": -20, \"low_water\": false, \"lid_open\": false, \"sensor\": false}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":false},\"Low water\":{\"type\":4,\"value\":false},\"Sensor broken\":{\"type\":8,\"value\":false},\"power\":{\"type\":1,\"value\":false},\"program\":{\"type\":1,\"value\":\"0\"},\"target\":{\"type\":1,\"value\":\"40.5\"},\"temperature\":{\"type\":2,\"value\":\"-20\"}}}", 7, {0x04, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00}},
    {"{\"power\": false, \"program\": 0, \"target\": 70, \"temperature\": -20, \"low_water\": false, \"lid_open\": false, \"sensor\": false}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":false},\"Low water\":{\"type\":4,\"value\":false},\"Sensor broken\":{\"type\":8,\"value\":false},\"power\":{\"type\":1,\"value\":false},\"program\":{\"type\":1,\"value\":\"0\"},\"target\":{\"type\":1,\"value\":\"70\"},\"temperature\":{\"type\":2,\"value\":\"-20\"}}}", 7, {0x04, 0x00, 0x3c, 0x00, 0x00, 0x00, 0x00}},
    {"{\"power\": false, \"program\": 0, \"target\": 99.5, \"temperature\": -20, \"low_water\": false, \"lid_open\": false, \"sensor\": false}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":false},\"Low water\":{\"type\":4,\"value\":false},\"Sensor broken\":{\"type\":8,\"value\":false},\"power\":{\"type\":1,\"value\":false},\"program\":{\"type\":1,\"value\":\"0\"},\"target\":{\"type\":1,\"value\":\"99.5\"},\"temperature\":{\"type\":2,\"value\":\"-20\"}}}", 7, {0x04, 0x00, 0x77, 0x00, 0x00, 0x00, 0x00}},
    {"{\"power\": false, \"program\": 0, \"target\": 100, \"temperature\": -20, \"low_water\": false, \"lid_open\": false, \"sensor\": false}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":false},\"Low water\":{\"type\":4,\"value\":false},\"Sensor broken\":{\"type\":8,\"value\":false},\"power\":{\"type\":1,\"value\":false},\"program\":{\"type\":1,\"value\":\"0\"},\"target\":{\"type\":1,\"value\":\"100\"},\"temperature\":{\"type\":2,\"value\":\"-20\"}}}", 7, {0x04, 0x00, 0x78, 0x00, 0x00, 0x00, 0x00}},
    {"{\"power\": false, \"program\": 0, \"target\": 40, \"temperature\": -19.9, \"low_water\": false, \"lid_open\": false, \"sensor\": false}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":false},\"Low water\":{\"type\":4,\"value\":false},\"Sensor broken\":{\"type\":8,\"value\":false},\"power\":{\"type\":1,\"value\":false},\"program\":{\"type\":1,\"value\":\"0\"},\"target\":{\"type\":1,\"value\":\"40\"},\"temperature\":{\"type\":2,\"value\":\"-19.9\"}}}", 7, {0x04, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00}},
    {"{\"power\": false, \"program\": 0, \"target\": 40, \"temperature\": 55, \"low_water\": false, \"lid_open\": false, \"sensor\": false}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":false},\"Low water\":{\"type\":4,\"value\":false},\"Sensor broken\":{\"type\":8,\"value\":false},\"power\":{\"type\":1,\"value\":false},\"program\":{\"type\":1,\"value\":\"0\"},\"target\":{\"type\":1,\"value\":\"40\"},\"temperature\":{\"type\":2,\"value\":\"55\"}}}", 7, {0x04, 0x00, 0x00, 0x02, 0xee, 0x00, 0x00}},
    {"{\"power\": false, \"program\": 0, \"target\": 40, \"temperature\": 129.9, \"low_water\": false, \"lid_open\": false, \"sensor\": false}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":false},\"Low water\":{\"type\":4,\"value\":false},\"Sensor broken\":{\"type\":8,\"value\":false},\"power\":{\"type\":1,\"value\":false},\"program\":{\"type\":1,\"value\":\"0\"},\"target\":{\"type\":1,\"value\":\"40\"},\"temperature\":{\"type\":2,\"value\":\"129.9\"}}}", 7, {0x04, 0x00, 0x00, 0x05, 0xdb, 0x00, 0x00}},
    {"{\"power\": false, \"program\": 0, \"target\": 40, \"temperature\": 130, \"low_water\": false, \"lid_open\": false, \"sensor\": false}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":false},\"Low water\":{\"type\":4,\"value\":false},\"Sensor broken\":{\"type\":8,\"value\":false},\"power\":{\"type\":1,\"value\":false},\"program\":{\"type\":1,\"value\":\"0\"},\"target\":{\"type\":1,\"value\":\"40\"},\"temperature\":{\"type\":2,\"value\":\"130\"}}}", 7, {0x04, 0x00, 0x00, 0x05, 0xdc, 0x00, 0x00}},
    {"{\"power\": false, \"program\": 0, \"target\": 40, \"temperature\": -20, \"low_water\": true, \"lid_open\": false, \"sensor\": false}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":false},\"Low water\":{\"type\":4,\"value\":true},\"Sensor broken\":{\"type\":8,\"value\":false},\"power\":{\"type\":1,\"value\":false},\"program\":{\"type\":1,\"value\":\"0\"},\"target\":{\"type\":1,\"value\":\"40\"},\"temperature\":{\"type\":2,\"value\":\"-20\"}}}", 7, {0x04, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00}},
    {"{\"power\": false, \"program\": 0, \"target\": 40, \"temperature\": -20, \"low_water\": false, \"lid_open\": true, \"sensor\": false}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":true},\"Low water\":{\"type\":4,\"value\":false},\"Sensor broken\":{\"type\":8,\"value\":false},\"power\":{\"type\":1,\"value\":false},\"program\":{\"type\":1,\"value\":\"0\"},\"target\":{\"type\":1,\"value\":\"40\"},\"temperature\":{\"type\":2,\"value\":\"-20\"}}}", 7, {0x04, 0x00, 0x00, 0x00, 0x00, 0x02, 0x00}},
    {"{\"power\": false, \"program\": 0, \"target\": 40, \"temperature\": -20, \"low_water\": false, \"lid_open\": false, \"sensor\": true}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":false},\"Low water\":{\"type\":4,\"value\":false},\"Sensor broken\":{\"type\":8,\"value\":true},\"power\":{\"type\":1,\"value\":false},\"program\":{\"type\":1,\"value\":\"0\"},\"target\":{\"type\":1,\"value\":\"40\"},\"temperature\":{\"type\":2,\"value\":\"-20\"}}}", 7, {0x04, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01}},
    {"{\"power\": true, \"program\": 1, \"target\": 40.5, \"temperature\": -19.9, \"low_water\": true, \"lid_open\": true, \"sensor\": true}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":true},\"Low water\":{\"type\":4,\"value\":true},\"Sensor broken\":{\"type\":8,\"value\":true},\"power\":{\"type\":1,\"value\":true},\"program\":{\"type\":1,\"value\":\"1\"},\"target\":{\"type\":1,\"value\":\"40.5\"},\"temperature\":{\"type\":2,\"value\":\"-19.9\"}}}", 7, {0x04, 0x03, 0x01, 0x00, 0x01, 0x03, 0x01}},
    {"{\"power\": false, \"program\": 2, \"target\": 70, \"temperature\": 55, \"low_water\": false, \"lid_open\": false, \"sensor\": false}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":false},\"Low water\":{\"type\":4,\"value\":false},\"Sensor broken\":{\"type\":8,\"value\":false},\"power\":{\"type\":1,\"value\":false},\"program\":{\"type\":1,\"value\":\"2\"},\"target\":{\"type\":1,\"value\":\"70\"},\"temperature\":{\"type\":2,\"value\":\"55\"}}}", 7, {0x04, 0x04, 0x3c, 0x02, 0xee, 0x00, 0x00}},
    {"{\"power\": true, \"program\": 0, \"target\": 99.5, \"temperature\": 129.9, \"low_water\": true, \"lid_open\": true, \"sensor\": true}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":true},\"Low water\":{\"type\":4,\"value\":true},\"Sensor broken\":{\"type\":8,\"value\":true},\"power\":{\"type\":1,\"value\":true},\"program\":{\"type\":1,\"value\":\"0\"},\"target\":{\"type\":1,\"value\":\"99.5\"},\"temperature\":{\"type\":2,\"value\":\"129.9\"}}}", 7, {0x04, 0x01, 0x77, 0x05, 0xdb, 0x03, 0x01}},
    {"{\"power\": false, \"program\": 1, \"target\": 100, \"temperature\": 130, \"low_water\": false, \"lid_open\": false, \"sensor\": false}", "{\"kettle\":{\"Lid open\":{\"type\":4,\"value\":false},\"Low water\":{\"type\":4,\"value\":false},\"Sensor broken\":{\"type\":8,\"value\":false},\"power\":{\"type\":1,\"value\":false},\"program\":{\"type\":1,\"value\":\"1\"},\"target\":{\"type\":1,\"value\":\"100\"},\"temperature\":{\"type\":2,\"value\":\"130\"}}}", 7, {0x04, 0x02, 0x78, 0x05, 0xdc, 0x00, 0x00}},
};

#define KETTLE_REFUSED_COUNT 3
static const struct {
  const char* values;
  const char* reason;
} kettle_refused[] = {
    {"{\"program\": 3}", "\"program\" refused: Invalid enum value: 3, range: 0-3 (expected 0 to 2; the line's 3 counts the items)"},
    {"{\"target\": 39.5}", "\"target\" refused: Validate uint value failed. (expected 40 to 100)"},
    {"{\"target\": 100.5}", "\"target\" refused: Validate uint value failed. (expected 40 to 100)"},
};
