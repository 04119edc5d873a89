// The flat functions over the real facade.
#include "VelaWrap.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

#include "giivela.h"

extern "C" int callAllFromC(void);

namespace {

using testing::ElementsAre;

// A facade whose operations only log their arguments and return a distinct value each.
class RecordingFacade : public gIIVela {
 public:
  static inline std::vector<std::string> log;
  static inline char classid[] = "a class id";
  static inline char description[] = "a description";
  static inline char serial[] = "a serial number";
  static inline PenEventHandler handler = nullptr;

  ~RecordingFacade() override { log.emplace_back("~gIIVela"); }
  void CloseConnection() override { log.emplace_back("CloseConnection"); }
  bool OpenConnection() override { return note("OpenConnection", true); }
  short GetNumProviders() override { return note<short>("GetNumProviders", 11); }
  char* GetProviderClassID(short index) override {
    return note("GetProviderClassID " + std::to_string(index), classid);
  }
  char* GetProviderDescription(short index) override {
    return note("GetProviderDescription " + std::to_string(index), description);
  }
  void SetProviderDescription(char* id, char* text) override {
    log.push_back(std::string("SetProviderDescription ") + id + ", " + text);
  }
  bool OpenProvider(char* id) override { return note(std::string("OpenProvider ") + id, true); }
  void CloseProvider() override { log.emplace_back("CloseProvider"); }
  short GetNumDevices() override { return note<short>("GetNumDevices", -12); }
  char* GetSerialNumber() override { return note("GetSerialNumber", serial); }
  int GetDataRangeMinX() override { return note("GetDataRangeMinX", 1); }
  int GetDataRangeMinY() override { return note("GetDataRangeMinY", 2); }
  int GetDataRangeMinZ() override { return note("GetDataRangeMinZ", 3); }
  int GetDataRangeMaxX() override { return note("GetDataRangeMaxX", 4); }
  int GetDataRangeMaxY() override { return note("GetDataRangeMaxY", 5); }
  int GetDataRangeMaxZ() override { return note("GetDataRangeMaxZ", 6); }
  double GetPhysicalX() override { return note("GetPhysicalX", 7.5); }
  double GetPhysicalY() override { return note("GetPhysicalY", 8.5); }
  bool RegisterEventHandler(PenEventHandler given) override {
    handler = given;
    return note("RegisterEventHandler", true);
  }
  bool ClearInking() override { return note("ClearInking", true); }

 private:
  template <typename Value>
  static Value note(const std::string& call, Value answer) {
    log.push_back(call);
    return answer;
  }
};

void someHandler(std::int32_t, std::int32_t, std::int32_t, std::uint8_t, std::uint32_t,
                 std::uint32_t) {}

class ForwardingTest : public testing::Test {
 protected:
  ForwardingTest() { RecordingFacade::log.clear(); }
  ~ForwardingTest() override {
    if (vela != nullptr) deletegIIVela(vela);
  }

  void* vela = static_cast<gIIVela*>(new RecordingFacade);
};

TEST_F(ForwardingTest, EveryFunctionIsItsOperation) {
  EXPECT_EQ(GetNumProviders(vela), 11);
  EXPECT_EQ(GetProviderClassID(vela, 3), RecordingFacade::classid);
  EXPECT_EQ(GetProviderDescription(vela, -2), RecordingFacade::description);
  char id[] = "1234";
  char text[] = "name";
  SetProviderDescription(vela, id, text);
  EXPECT_TRUE(OpenProvider(vela, id));
  CloseProvider(vela);
  EXPECT_TRUE(OpenConnection(vela));
  CloseConnection(vela);
  EXPECT_EQ(GetNumDevices(vela), -12);
  EXPECT_EQ(GetSerialNumber(vela), RecordingFacade::serial);
  EXPECT_EQ(GetDataRangeMinX(vela), 1);
  EXPECT_EQ(GetDataRangeMinY(vela), 2);
  EXPECT_EQ(GetDataRangeMinZ(vela), 3);
  EXPECT_EQ(GetDataRangeMaxX(vela), 4);
  EXPECT_EQ(GetDataRangeMaxY(vela), 5);
  EXPECT_EQ(GetDataRangeMaxZ(vela), 6);
  EXPECT_EQ(GetPhysicalX(vela), 7.5);
  EXPECT_EQ(GetPhysicalY(vela), 8.5);
  EXPECT_TRUE(RegisterEventHandler(vela, someHandler));
  EXPECT_EQ(RecordingFacade::handler, &someHandler);
  EXPECT_TRUE(ClearInking(vela));
  EXPECT_THAT(RecordingFacade::log,
              ElementsAre("GetNumProviders", "GetProviderClassID 3", "GetProviderDescription -2",
                          "SetProviderDescription 1234, name", "OpenProvider 1234", "CloseProvider",
                          "OpenConnection", "CloseConnection", "GetNumDevices", "GetSerialNumber",
                          "GetDataRangeMinX", "GetDataRangeMinY", "GetDataRangeMinZ",
                          "GetDataRangeMaxX", "GetDataRangeMaxY", "GetDataRangeMaxZ",
                          "GetPhysicalX", "GetPhysicalY", "RegisterEventHandler", "ClearInking"));
}

TEST_F(ForwardingTest, DeleteRunsTheVirtualDestructor) {
  deletegIIVela(std::exchange(vela, nullptr));
  EXPECT_THAT(RecordingFacade::log, ElementsAre("~gIIVela"));
}

TEST_F(ForwardingTest, DeletingNullDoesNothing) {
  deletegIIVela(nullptr);
  EXPECT_TRUE(RecordingFacade::log.empty());
}

TEST(VelaWrapInCTest, EveryFunctionCanBeCalledFromC) {
  EXPECT_EQ(callAllFromC(), 0);
}

}  // namespace
