// Many threads at work at once, while another one replaces everything that the host can replace.

#include <gtest/gtest.h>
#include <json/json.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "TestSupport.h"
#include "host/Base64.h"
#include "host/TavelConfig.h"

namespace {

constexpr int kThreads = 4;
constexpr int kVariants = 12;  // different values to encode and packets to decode
constexpr int kRounds = 12;    // of all variants, on each thread

// A payload of 9 bytes: switch and mode share byte 0, then level, key (3 bytes), total (2 bytes), hot, broken.
const char kEntity[] = R"({
  "id": 0, "name": "lamp", "display_name": "Lamp", "attrs": [
    {"id": 0, "name": "switch", "display_name": "Switch", "desc": "", "type": "status_writable", "data_type": "bool",
     "position": {"byte_offset": 0, "bit_offset": 0, "unit": "bit", "len": 1}},
    {"id": 1, "name": "mode", "display_name": "Mode", "desc": "", "type": "status_writable", "data_type": "enum",
     "enum": ["low", "mid", "high"], "position": {"byte_offset": 0, "bit_offset": 1, "unit": "bit", "len": 2}},
    {"id": 2, "name": "level", "display_name": "Level", "desc": "", "type": "status_writable", "data_type": "uint8",
     "uint_spec": {"min": 0, "max": 100, "ratio": 0.5, "addition": -10},
     "position": {"byte_offset": 1, "bit_offset": 0, "unit": "byte", "len": 1}},
    {"id": 3, "name": "key", "display_name": "Key", "desc": "", "type": "status_writable", "data_type": "binary",
     "position": {"byte_offset": 2, "bit_offset": 0, "unit": "byte", "len": 3}},
    {"id": 4, "name": "total", "display_name": "Total", "desc": "", "type": "status_readonly", "data_type": "uint16",
     "uint_spec": {"min": 0, "max": 65535, "ratio": 1, "addition": 0},
     "position": {"byte_offset": 5, "bit_offset": 0, "unit": "byte", "len": 2}},
    {"id": 5, "name": "hot", "display_name": "Hot", "desc": "", "type": "alert", "data_type": "bool",
     "position": {"byte_offset": 7, "bit_offset": 0, "unit": "bit", "len": 1}},
    {"id": 6, "name": "broken", "display_name": "Broken", "desc": "", "type": "fault", "data_type": "enum",
     "enum": ["none", "lamp", "fan"], "position": {"byte_offset": 8, "bit_offset": 0, "unit": "bit", "len": 2}}
  ]})";

const char kRefused[] = "Validate uint value failed.";

// What one variant of the work gives.
struct Answers {
  std::string sent;       // the packet that writes the values
  std::string refused;    // the packet sizes after a level beyond the scaling
  std::string decoded;    // the document of the received packet
  std::string converted;  // the same for the application
  std::string active;     // alerts and faults
};

bool operator==(const Answers& left, const Answers& right) {
  return left.sent == right.sent && left.refused == right.refused && left.decoded == right.decoded &&
         left.converted == right.converted && left.active == right.active;
}

std::ostream& operator<<(std::ostream& stream, const Answers& answers) {
  return stream << answers.sent << "\n"
                << answers.refused << "\n"
                << answers.decoded << "\n"
                << answers.converted << answers.active;
}

// Payload of variant k: every number in it depends on k.
std::vector<byte> Payload(int k) {
  const auto low = static_cast<byte>(k);
  return {static_cast<byte>(k % 2 | (k % 3) << 1),
          low,
          1,
          2,
          low,
          1,
          low,
          static_cast<byte>(k % 2),
          static_cast<byte>(k % 3)};
}

// Writes and receives variant k. `encode` and `decode` are the one-call operations or those on parsed records.
Answers Work(int k, const std::function<void(MorvixProtocolPackage_4_0&, const Json::Value&)>& encode,
             const std::function<void(const MorvixProtocolPackage_4_0&, Json::Value&)>& decode) {
  Answers answers;
  const std::vector<byte> payload = Payload(k);

  Json::Value values;
  values["lamp"]["switch"] = k % 2;
  values["lamp"]["mode"] = std::to_string(k % 3);
  values["lamp"]["level"] = k * 0.5 - 10;
  char base64[16];
  values["lamp"]["key"] = __internal_base64_encode(base64, sizeof base64, payload.data() + 2, 3);
  MorvixProtocolOwnedPackage_4_0 package;
  package.cmd = MorvixProtocolCommandWriteReq_4_0;
  encode(package, values);
  byte buffer[64];
  answers.sent = ToHex(buffer, ProtocolPackPackage_4_0(package, buffer, sizeof buffer));

  values["lamp"]["level"] = 1000;
  package.Reset();
  encode(package, values);
  answers.refused = std::to_string(package.sizeFlags) + " " + std::to_string(package.sizeValue);
  package.Reset();

  std::vector<byte> packet = {MorvixProtocolCommandNotifyResp_4_0};
  packet.insert(packet.end(), payload.begin(), payload.end());
  EXPECT_TRUE(ProtocolUnpackPackage_4_0(packet.data(), packet.size(), package));
  Json::Value document;
  decode(package, document);
  answers.decoded = WriteJson(document);
  document["version"] = 4.0;
  Json::Value alerts;
  Json::Value faults;
  answers.converted = ProtocolConvertReceiveResult_4_0(WriteJson(document), alerts, faults);
  std::vector<TavelReceiveInfo> infos;
  ProtocolGetAlertsAndFaults_4_0(alerts, faults, infos, infos);
  for (const TavelReceiveInfo& info : infos) answers.active += info.name + "=" + std::to_string(info.value) + " ";
  return answers;
}

Answers WorkInOneCall(const Json::Value& entity, int k) {
  return Work(
      k,
      [&](MorvixProtocolPackage_4_0& package, const Json::Value& root) {
        ProtocolEncodeEntity_4_0(entity, package, root);
      },
      [&](const MorvixProtocolPackage_4_0& package, Json::Value& document) {
        ProtocolDecodeEntity_4_0(entity, package, document);
      });
}

// Every variant on this thread alone.
std::vector<Answers> SingleThread(const Json::Value& entity) {
  const LogCapture log;
  std::vector<Answers> answers;
  for (int k = 0; k < kVariants; ++k) answers.push_back(WorkInOneCall(entity, k));
  return answers;
}

// Runs `work(thread)` on kThreads threads that set off together, and meanwhile `change(round)` over and over on one
// more: at least once, and until the last of the others is done.
void RunTogether(const std::function<void(int)>& work, const std::function<void(int)>& change) {
  std::promise<void> start;
  const std::shared_future<void> started = start.get_future().share();
  std::atomic<int> running{kThreads};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      started.wait();
      work(thread);
      --running;
    });
  }
  threads.emplace_back([&] {
    started.wait();
    int round = 0;
    do {
      change(round++);
      std::this_thread::yield();
    } while (running > 0);
  });
  start.set_value();
  for (std::thread& thread : threads) thread.join();
}

// Counts lines by their text, whatever sink they come through.
class LineCounter {
 public:
  LogSink NewSink() {
    return [this](int, const char*, const std::string& message) {
      const std::lock_guard<std::mutex> lock(mutex_);
      ++counts_[message];
    };
  }
  std::map<std::string, int> Counts() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return counts_;
  }

 private:
  mutable std::mutex mutex_;
  std::map<std::string, int> counts_;
};

// Leaves sink, level, devices and build kind as they were before the test.
class Threads : public testing::Test {
 protected:
  Threads() : devices_(*config_->GetAllDevices()), debug_(config_->IsDebug()) {}
  ~Threads() override {
    SetLogSink(sink_);
    config_->SetAllDevices(devices_);
    config_->SetDebug(debug_);
  }

  TavelConfig* const config_ = TavelConfig::sharedInstance();
  const Json::Value entity_ = ParseJson(kEntity);

 private:
  const LogSink sink_ = SetLogSink([](int, const char*, const std::string&) {});
  const Json::Value devices_;
  const bool debug_;
};

}  // namespace

// The results of a single thread are worth comparing with: variant 5 by hand. Level -7.5 is the raw number
// (-7.5 + 10) / 0.5 = 5, byte 0 is the switch 1 and the mode 2 above it, total is 1 * 256 + 5.
TEST_F(Threads, HaveSomethingToCompareWith) {
  const Answers answers = SingleThread(entity_)[5];
  EXPECT_EQ(answers.sent, "01 0f 05 05 01 02 05");
  EXPECT_EQ(answers.refused, "0 0");
  EXPECT_EQ(answers.decoded,
            R"({"lamp":{"Broken":{"type":8,"value":"2"},"Hot":{"type":4,"value":true},)"
            R"("key":{"type":1,"value":"AQIF"},"level":{"type":1,"value":"-7.5"},"mode":{"type":1,"value":"2"},)"
            R"("switch":{"type":1,"value":true},"total":{"type":2,"value":"261"}}})");
  EXPECT_EQ(answers.converted,
            "{\"lamp\":{\"key\":\"AQIF\",\"level\":\"-7.5\",\"mode\":\"2\",\"switch\":true,\"total\":\"261\"},"
            "\"version\":4.0}\n");
  EXPECT_EQ(answers.active, "Hot=1 Broken=2 ");
}

TEST_F(Threads, ReceiveByOnePlan) {
  const std::vector<Answers> expected = SingleThread(entity_);
  std::vector<MorvixProtocolAttribute_4_0> attributes;
  MorvixProtocolEntity_4_0 info;
  ASSERT_TRUE(ProtocolParseEntity_4_0(entity_, 15, attributes, info));
  MorvixProtocolReceivePlan_4_0 plan = ProtocolPlanReceive_4_0(info, attributes);
  const MorvixProtocolReceivePlan_4_0 shared = plan;
  RunTogether(
      [&](int) {
        const MorvixProtocolReceivePlan_4_0 copy = shared;
        for (int i = 0; i < kRounds * kVariants; ++i) {
          std::vector<byte> packet = Payload(i % kVariants);
          packet.insert(packet.begin(), MorvixProtocolCommandNotifyResp_4_0);
          std::string document;
          std::vector<TavelReceiveInfo> infos;
          EXPECT_TRUE(ProtocolReceivePacket_4_0(copy, packet.data(), packet.size(), document, infos, infos));
          std::string active;
          for (const TavelReceiveInfo& it : infos) active += it.name + "=" + std::to_string(it.value) + " ";
          EXPECT_EQ(document, expected[static_cast<size_t>(i % kVariants)].converted);
          EXPECT_EQ(active, expected[static_cast<size_t>(i % kVariants)].active);
        }
      },
      [&](int) { plan = ProtocolPlanReceive_4_0(info, attributes); });
}

TEST_F(Threads, EncodeDecodeAndConvertAsOneAloneWhileSinkAndLevelChange) {
  const std::vector<Answers> expected = SingleThread(entity_);
  LineCounter counter;
  SetLogSink(counter.NewSink());
  RunTogether(
      [&](int thread) {
        for (int i = 0; i < kRounds * kVariants; ++i) {
          const int k = (i + thread * 5) % kVariants;
          EXPECT_EQ(WorkInOneCall(entity_, k), expected[static_cast<size_t>(k)]);
        }
      },
      [&](int round) {
        SetLogSink(counter.NewSink());
        SetLogLevel(1 + round % 2);
      });
  // Level 1 always passed, so each refusal has left its line exactly once; the informational line may be there or not.
  std::map<std::string, int> counts = counter.Counts();
  EXPECT_EQ(counts[kRefused], kThreads * kRounds * kVariants);
  counts.erase(kRefused);
  counts.erase(FilterLine(0, "lamp", "Lamp").text);
  EXPECT_TRUE(counts.empty()) << "for example: " << counts.begin()->first;
}

TEST_F(Threads, ShareParsedRecords) {
  const std::vector<Answers> expected = SingleThread(entity_);
  MorvixProtocolEntity_4_0 info;
  std::vector<MorvixProtocolAttribute_4_0> writable;
  std::vector<MorvixProtocolAttribute_4_0> all;
  ASSERT_TRUE(ProtocolParseEntity_4_0(entity_, 1, writable, info));
  ASSERT_TRUE(ProtocolParseEntity_4_0(entity_, 15, all, info));
  LineCounter counter;
  RunTogether(
      [&](int thread) {
        for (int i = 0; i < kRounds * kVariants; ++i) {
          const int k = (i + thread * 5) % kVariants;
          const Answers answers = Work(
              k,
              [&](MorvixProtocolPackage_4_0& package, const Json::Value& root) {
                ProtocolEncodeAttributes_4_0(info, writable, package, root);
              },
              [&](const MorvixProtocolPackage_4_0& package, Json::Value& document) {
                ProtocolDecodeAttributes_4_0(info, all, package, document);
              });
          EXPECT_EQ(answers, expected[static_cast<size_t>(k)]);
        }
      },
      [&](int) { SetLogSink(counter.NewSink()); });
}

TEST_F(Threads, QueryOneDeviceListOrTheOtherWhileTheyChange) {
  const Json::Value lists[] = {ParseJson(R"([{"protocolType":"p","packetVersion":"0x4","product_key":"a1"},
                    {"protocolType":"q","packetVersion":"0x4","product_key":"a2"},
                    {"protocolType":"p","packetVersion":"0x4","product_key":{"debug":"ad","release":"ar"}}])"),
                               ParseJson(R"([null,{"protocolType":"p","packetVersion":"0x4","product_key":"b1"}])"),
                               Json::Value()};
  config_->SetAllDevices(lists[0]);
  RunTogether(
      [&](int) {
        for (int i = 0; i < 1500; ++i) {
          Json::Value devices;
          const bool known = ProtocolFilterDevices_4_0("p", 4, devices);
          const Json::ArrayIndex count = devices.size();
          ASSERT_TRUE(count <= 2 && known == (count != 0));
          if (!known) continue;
          const std::string first = ProtocolGetProductKey_4_0(devices[0]);
          EXPECT_EQ(first, count == 2 ? "a1" : "b1");
          Json::Value device;
          EXPECT_TRUE(ProtocolGetDevice_4_0(devices, first.c_str(), device));
          EXPECT_EQ(device, devices[0]);
          const std::vector<std::string> keys = ProtocolGetProductList_4_0(devices);
          ASSERT_EQ(keys.size(), count);
          EXPECT_EQ(keys[0], first);
          if (count == 2) {
            EXPECT_TRUE(keys[1] == "ad" || keys[1] == "ar") << keys[1];
          }
        }
      },
      [&](int round) {
        config_->SetAllDevices(lists[round % 3]);
        config_->SetDebug(round % 2 == 0);
      });
}

TEST_F(Threads, KeepTheirDevicesUntilTheyAskAgain) {
  RunTogether(
      [&](int) {
        for (int i = 0; i < 1500; ++i) {
          const Json::Value* devices = config_->GetAllDevices();
          const std::string before = WriteJson(*devices);
          std::this_thread::yield();
          EXPECT_EQ(WriteJson(*devices), before);
        }
      },
      [&](int round) { config_->SetAllDevices(ParseJson("[" + std::to_string(round) + R"(,{"n":[]}])")); });
}

TEST_F(Threads, LogWholeLinesEachOnceWhileTheSinkChanges) {
  LineCounter counter;
  SetLogSink(counter.NewSink());
  SetLogLevel(1);
  const int lines = 100;
  RunTogether(
      [&](int thread) {
        const std::string text(2000, static_cast<char>('a' + thread));
        for (int i = 0; i < lines; ++i) {
          logMsg(1, "%s %d", text.c_str(), i);
          logMsgEx(2, "Operation", "%s", text.c_str());
        }
      },
      [&](int) { SetLogSink(counter.NewSink()); });
  const std::map<std::string, int> counts = counter.Counts();
  EXPECT_EQ(counts.size(), static_cast<size_t>(kThreads * lines));
  for (int thread = 0; thread < kThreads; ++thread) {
    const std::string text(2000, static_cast<char>('a' + thread));
    for (int i = 0; i < lines; ++i) {
      const auto found = counts.find(text + " " + std::to_string(i));
      ASSERT_TRUE(found != counts.end()) << "thread " << thread << ", line " << i;
      EXPECT_EQ(found->second, 1);
    }
  }
}
