// Every allocation of every function of the C interface fails once. Calls of malloc and calloc from the interface go
// through the wrappers below; operator new is that of the whole program, JsonCpp included.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "bindings/c/morvix_protocol.h"

namespace {

// How many more allocations succeed before the next one fails; none fails when it is negative.
int allowed = -1;
bool hasFailed = false;

bool IsRefused() {
  if (allowed < 0) return false;
  if (allowed-- > 0) return false;
  hasFailed = true;
  return true;
}

}  // namespace

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __wrap_malloc(size_t size) { return IsRefused() ? nullptr : __real_malloc(size); }
void* __wrap_calloc(size_t count, size_t size) { return IsRefused() ? nullptr : __real_calloc(count, size); }
}

void* operator new(size_t size) {
  void* const memory = IsRefused() ? nullptr : __real_malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }

namespace {

struct Outputs {
  morvix_bytes first = {};
  morvix_bytes second = {};
  char* message = nullptr;
  morvix_entity* entity = nullptr;

  ~Outputs() {
    morvix_free(first.data);
    morvix_free(second.data);
    morvix_free(message);
    morvix_entity_close(entity);
  }
};

// The JSON reader takes a number with a fractional part for malformed when it cannot allocate memory to read it.
bool IsMalformedNumber(morvix_status status, const Outputs& outputs) {
  const std::string message = outputs.message == nullptr ? "" : outputs.message;
  return status == MORVIX_BAD_INPUT && message.find("is not a number.") != std::string::npos;
}

// A failed allocation is one of a warning or message, which the call does without, or fails the call with no outputs.
void FailEachAllocation(morvix_status expected, const std::function<morvix_status(Outputs&)>& call) {
  int failures = 0;
  for (int count = 0;; ++count) {
    Outputs outputs;
    hasFailed = false;
    allowed = count;
    const morvix_status status = call(outputs);
    allowed = -1;
    if (!hasFailed) {
      EXPECT_EQ(status, expected);
      break;
    }
    ++failures;
    if (status == expected) continue;
    EXPECT_TRUE(status == MORVIX_NO_MEMORY || IsMalformedNumber(status, outputs)) << "allocation " << count;
    EXPECT_EQ(outputs.first.data, nullptr);
    EXPECT_EQ(outputs.first.size, 0u);
    EXPECT_EQ(outputs.second.data, nullptr);
    EXPECT_EQ(outputs.entity, nullptr);
  }
  EXPECT_GT(failures, 0);
}

class FailingAllocation : public testing::Test {
 protected:
  FailingAllocation() {
    EXPECT_EQ(morvix_entity_open(configuration_.data(), configuration_.size(), "kettle", &outputs_.entity, nullptr),
              MORVIX_OK);
  }

  const std::string configuration_ = ReadFile(std::string(EXAMPLES_DIR) + "/kettle.json");
  Outputs outputs_;
  const morvix_entity* const& kettle_ = outputs_.entity;
  const std::vector<byte> packets_ = {4, 5, 0x5a, 4, 0x64, 1, 1, 4, 7, 0, 1};
  const size_t offsets_[4] = {0, 7, 10, 11};
};

TEST_F(FailingAllocation, OfEntities) {
  FailEachAllocation(MORVIX_OK, [this](Outputs& outputs) {
    return morvix_entities(configuration_.data(), configuration_.size(), &outputs.first, &outputs.message);
  });
}

TEST_F(FailingAllocation, OfOpening) {
  FailEachAllocation(MORVIX_OK, [this](Outputs& outputs) {
    return morvix_entity_open(configuration_.data(), configuration_.size(), "kettle", &outputs.entity,
                              &outputs.message);
  });
}

TEST_F(FailingAllocation, OfOpeningWhatIsNotJson) {
  FailEachAllocation(MORVIX_BAD_INPUT, [this](Outputs& outputs) {
    return morvix_entity_open(configuration_.data(), 100, nullptr, &outputs.entity, &outputs.message);
  });
}

TEST_F(FailingAllocation, OfDescribing) {
  FailEachAllocation(MORVIX_OK, [this](Outputs& outputs) { return morvix_entity_describe(kettle_, &outputs.first); });
}

TEST_F(FailingAllocation, OfEncoding) {
  const std::string values = R"({"kettle":{"power":true,"program":"2","target":85}})";
  FailEachAllocation(MORVIX_OK, [&](Outputs& outputs) {
    return morvix_encode(kettle_, values.data(), values.size(), 1, nullptr, &outputs.first, &outputs.message);
  });
}

TEST_F(FailingAllocation, OfRefusingValues) {
  const std::string values = R"({"kettle":{"power":[],"target":200,"a long name that nobody has":1}})";
  FailEachAllocation(MORVIX_REFUSED, [&](Outputs& outputs) {
    return morvix_encode(kettle_, values.data(), values.size(), 1, nullptr, &outputs.first, &outputs.message);
  });
}

TEST_F(FailingAllocation, OfRequests) {
  FailEachAllocation(MORVIX_OK,
                     [](Outputs& outputs) { return morvix_request(2, nullptr, &outputs.first, &outputs.message); });
}

TEST_F(FailingAllocation, OfDecoding) {
  FailEachAllocation(MORVIX_OK, [this](Outputs& outputs) {
    return morvix_decode(kettle_, packets_.data(), 7, &outputs.first, &outputs.message);
  });
}

TEST_F(FailingAllocation, OfReceiving) {
  FailEachAllocation(MORVIX_OK, [this](Outputs& outputs) {
    return morvix_receive(kettle_, packets_.data(), 7, &outputs.first, &outputs.second, &outputs.message);
  });
}

TEST_F(FailingAllocation, OfReceivingWithAWarning) {
  FailEachAllocation(MORVIX_OK, [this](Outputs& outputs) {
    return morvix_receive(kettle_, packets_.data() + 7, 3, &outputs.first, &outputs.second, &outputs.message);
  });
}

TEST_F(FailingAllocation, OfReceivingMany) {
  FailEachAllocation(MORVIX_OK, [this](Outputs& outputs) {
    return morvix_receive_many(kettle_, packets_.data(), offsets_, 3, &outputs.first);
  });
}

TEST_F(FailingAllocation, OfATable) {
  double values[21];
  uint8_t refused[3];
  FailEachAllocation(MORVIX_OK, [&](Outputs&) {
    return morvix_receive_table(kettle_, packets_.data(), offsets_, 3, values, refused);
  });
}

TEST_F(FailingAllocation, OfConverting) {
  const std::string document =
      R"({"kettle":{"Low water":{"type":4,"value":true},"power":{"type":1,"value":true}},"version":4.0})";
  FailEachAllocation(MORVIX_OK, [&](Outputs& outputs) {
    return morvix_convert(document.data(), document.size(), &outputs.first, &outputs.second, &outputs.message);
  });
}

}  // namespace
