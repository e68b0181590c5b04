#include "platform/object_manager.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "support/test_environment.h"

using namespace platform;

namespace {

class ObjectManagerTest : public alertdb_test::IsolatedTest {
 protected:
  void TearDown() override {
    KepOMSetProvider(nullptr);
    IsolatedTest::TearDown();
  }
  _GUID id_{0x12345678, 0x9abc, 0xdef0, {1, 2, 3, 4, 5, 6, 7, 8}};
};

TEST_F(ObjectManagerTest, DataDirectoryComesFromTheEnvironmentThenTheConsoleSettings) {
  char dir[260];
  setenv("ALERTDB_DATA_DIR", (dataDir() + "/").c_str(), 1);
  ASSERT_EQ(KepOMGetDataDir(dir, sizeof dir), 0u);
  EXPECT_EQ(std::string(dir), dataDir()) << "no trailing separator";

  unsetenv("ALERTDB_DATA_DIR");
  EXPECT_NE(KepOMGetDataDir(dir, sizeof dir), 0u) << "no settings file yet";
  EXPECT_NE(KepOMGetDomainID(&id_), 0u);
  EXPECT_NE(KepOMAddInstance(&id_, &kClassIdUser, "user"), 0u);
  writeFile(dataPath("QADMIN.DAT"), "[Directories]\nDataDir = /srv/alerts\n");
  ASSERT_EQ(KepOMGetDataDir(dir, sizeof dir), 0u);
  EXPECT_STREQ(dir, "/srv/alerts");
  EXPECT_NE(KepOMGetDataDir(dir, 5), 0u);
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
}

TEST_F(ObjectManagerTest, InstancesAreKeptInTheDataDirectory) {
  ASSERT_EQ(KepOMAddInstance(&id_, &kClassIdEventClass, "ALRT_Event_Class"), 0u);
  EXPECT_NE(KepOMAddInstance(&id_, &kClassIdEventClass, "again"), 0u);
  EXPECT_TRUE(fileExists(dataPath("KepOM.dat")));
  // Another thread opens the store on its own and sees the instance.
  std::uint32_t seen = 1;
  char name[64] = {};
  _GUID classId{};
  std::thread([&] { seen = KepOMGetInstance(&id_, &classId, name, sizeof name); }).join();
  EXPECT_EQ(seen, 0u);
  EXPECT_STREQ(name, "ALRT_Event_Class");
  EXPECT_EQ(std::memcmp(&classId, &kClassIdEventClass, 16), 0);
  ASSERT_EQ(KepOMUpdateInstance(&id_, &kClassIdEventClass, "renamed"), 0u);
  ASSERT_EQ(KepOMGetInstance(&id_, nullptr, name, sizeof name), 0u);
  EXPECT_STREQ(name, "renamed");
  EXPECT_NE(KepOMDeleteInstance(&id_, &kClassIdUser), 0u) << "wrong class";
  ASSERT_EQ(KepOMDeleteInstance(&id_, &kClassIdEventClass), 0u);
  EXPECT_NE(KepOMDeleteInstance(&id_, &kClassIdEventClass), 0u);
  EXPECT_NE(KepOMGetInstance(&id_, nullptr, name, sizeof name), 0u);
  EXPECT_NE(KepOMUpdateInstance(&id_, &kClassIdEventClass, "x"), 0u) << "unknown object";
  EXPECT_NE(KepOMAddInstance(nullptr, &kClassIdUser, "x"), 0u);
}

TEST_F(ObjectManagerTest, DomainIdIsStable) {
  _GUID first{}, second{}, zero{};
  ASSERT_EQ(KepOMGetDomainID(&first), 0u);
  EXPECT_NE(std::memcmp(&first, &zero, 16), 0);
  std::thread([&] { KepOMGetDomainID(&second); }).join();
  EXPECT_EQ(std::memcmp(&first, &second, 16), 0);
}

std::uint32_t Refuse(const _GUID *, const _GUID *, const char *) { return 0x80004005; }

TEST_F(ObjectManagerTest, AnInstalledProviderTakesThePlaceOfTheStandIn) {
  KepOMProvider provider{};
  provider.AddInstance = Refuse;
  KepOMSetProvider(&provider);
  EXPECT_EQ(KepOMAddInstance(&id_, &kClassIdUser, "user"), 0x80004005u);
  char dir[260];
  EXPECT_EQ(KepOMGetDataDir(dir, sizeof dir), 0u) << "entries left out fall back";
  EXPECT_EQ(std::string(dir), dataDir());
  KepOMSetProvider(nullptr);
  EXPECT_EQ(KepOMAddInstance(&id_, &kClassIdUser, "user"), 0u);
}

}  // namespace
