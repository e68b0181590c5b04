#include "platform/object_manager.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "platform/guid.h"
#include "support/test_environment.h"

using namespace platform;

namespace {

class ObjectManagerTest : public alertdb_test::IsolatedTest {
 protected:
  void TearDown() override {
    KepOMSetProvider(nullptr);
    IsolatedTest::TearDown();
  }
  static _GUID newId() {
    _GUID id;
    EXPECT_EQ(CoCreateGuid(&id), 0u);
    return id;
  }
};

TEST_F(ObjectManagerTest, DataDirectoryComesFromTheEnvironmentThenTheConsoleSettings) {
  char dir[260];
  ASSERT_EQ(KepOMGetDataDir(dir, sizeof dir), 0u);
  EXPECT_EQ(std::string(dir), dataDir());

  setenv("ALERTDB_DATA_DIR", (dataDir() + "/").c_str(), 1);
  ASSERT_EQ(KepOMGetDataDir(dir, sizeof dir), 0u);
  EXPECT_EQ(std::string(dir), dataDir()) << "no trailing separator";

  unsetenv("ALERTDB_DATA_DIR");
  EXPECT_NE(KepOMGetDataDir(dir, sizeof dir), 0u) << "no settings file yet";
  writeFile(dataPath("QADMIN.DAT"), "[Directories]\nDataDir = /srv/alerts\n");
  ASSERT_EQ(KepOMGetDataDir(dir, sizeof dir), 0u);
  EXPECT_STREQ(dir, "/srv/alerts");
  char tiny[5];
  EXPECT_NE(KepOMGetDataDir(tiny, sizeof tiny), 0u);
  EXPECT_NE(KepOMGetDataDir(nullptr, 260), 0u);
}

TEST_F(ObjectManagerTest, ConnectionsAreReferenceCounted) {
  KepOMConnection *c = nullptr;
  ASSERT_EQ(KepOMOpen(&c), 0u);
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->ops->AddRef(c), 2u);
  EXPECT_EQ(c->ops->Release(c), 1u);
  void *other = reinterpret_cast<void *>(1);
  EXPECT_NE(c->ops->QueryInterface(c, nullptr, &other), 0u);
  EXPECT_EQ(other, nullptr);
  EXPECT_EQ(c->ops->Release(c), 0u);
  EXPECT_NE(KepOMOpen(nullptr), 0u);
}

TEST_F(ObjectManagerTest, InstancesAreKeptInTheDataDirectory) {
  _GUID id = newId();
  ASSERT_EQ(KepOMAddInstance(&id, &kClassIdEventClass, "ALRT_Event_Class"), 0u);
  EXPECT_NE(KepOMAddInstance(&id, &kClassIdEventClass, "again"), 0u);
  EXPECT_TRUE(fileExists(dataPath("KepOM.dat")));

  // Another thread opens the store on its own and sees the instance.
  std::uint32_t seen = 1;
  char name[64] = {};
  _GUID classId{};
  std::thread([&] { seen = KepOMGetInstance(&id, &classId, name, sizeof name); }).join();
  EXPECT_EQ(seen, 0u);
  EXPECT_STREQ(name, "ALRT_Event_Class");
  EXPECT_EQ(std::memcmp(&classId, &kClassIdEventClass, 16), 0);

  ASSERT_EQ(KepOMUpdateInstance(&id, &kClassIdEventClass, "renamed"), 0u);
  ASSERT_EQ(KepOMGetInstance(&id, nullptr, name, sizeof name), 0u);
  EXPECT_STREQ(name, "renamed");

  EXPECT_NE(KepOMDeleteInstance(&id, &kClassIdUser), 0u) << "wrong class";
  ASSERT_EQ(KepOMDeleteInstance(&id, &kClassIdEventClass), 0u);
  EXPECT_NE(KepOMDeleteInstance(&id, &kClassIdEventClass), 0u);
  EXPECT_NE(KepOMGetInstance(&id, nullptr, name, sizeof name), 0u);

  // An object the object manager does not know cannot be changed.
  _GUID fresh = newId();
  EXPECT_NE(KepOMUpdateInstance(&fresh, &kClassIdEventLog, "log"), 0u);
  EXPECT_NE(KepOMGetInstance(&fresh, nullptr, nullptr, 0), 0u);
  EXPECT_NE(KepOMAddInstance(nullptr, &kClassIdUser, "x"), 0u);
  EXPECT_NE(KepOMDeleteInstance(&fresh, nullptr), 0u);
}

TEST_F(ObjectManagerTest, DomainIdIsStableAndShared) {
  _GUID first{}, second{};
  ASSERT_EQ(KepOMGetDomainID(&first), 0u);
  _GUID zero{};
  EXPECT_NE(std::memcmp(&first, &zero, 16), 0);
  std::thread([&] { KepOMGetDomainID(&second); }).join();
  EXPECT_EQ(std::memcmp(&first, &second, 16), 0);
}

TEST_F(ObjectManagerTest, WithoutDataDirectoryInstancesFail) {
  unsetenv("ALERTDB_DATA_DIR");
  _GUID id = newId();
  EXPECT_NE(KepOMAddInstance(&id, &kClassIdUser, "user"), 0u);
  EXPECT_NE(KepOMGetDomainID(&id), 0u);
}

namespace refusing {
std::uint32_t refuse(const _GUID *, const _GUID *, const char *) { return 0x80004005; }
std::uint32_t refuseOpen(KepOMConnection **) { return 0x80004005; }
}  // namespace refusing

TEST_F(ObjectManagerTest, AnInstalledProviderTakesThePlaceOfTheStandIn) {
  KepOMProvider provider{};
  provider.AddInstance = refusing::refuse;
  provider.Open = refusing::refuseOpen;
  KepOMSetProvider(&provider);
  _GUID id = newId();
  EXPECT_EQ(KepOMAddInstance(&id, &kClassIdUser, "user"), 0x80004005u);
  KepOMConnection *c = nullptr;
  EXPECT_EQ(KepOMOpen(&c), 0x80004005u);
  // Entries it leaves out are still served by the stand-in.
  EXPECT_NE(KepOMUpdateInstance(&id, &kClassIdUser, "user"), 0u) << "not registered";
  KepOMSetProvider(nullptr);
  EXPECT_EQ(KepOMAddInstance(&id, &kClassIdUser, "user"), 0u);
  EXPECT_EQ(KepOMUpdateInstance(&id, &kClassIdUser, "user"), 0u);
}

}  // namespace
