#include "text/replaceable_parameters.h"

#include <gtest/gtest.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "platform/dynamic_library.h"
#include "text/expansion_fixture.h"

extern char **environ;

namespace {

using alertdb_test::Expansion;
using alertdb_test::ExpansionInputs;

const char *const kNames[] = {
    "<User Name>", "<Workstation Name>", "<Site Name>",  "<Event Name>",        "<Time>",
    "<Date>",      "<Date/Time>",        "<Severity>",   "<Product ErrorCode>", "<Product Name>",
    "<Event ID>",  "<Event Text>",       "<Text Param>", "<Operational Status>"};

std::string name(std::uint32_t id, HINSTANCE module = AlertDBModuleHandle()) {
  char text[128] = "untouched";
  EXPECT_EQ(GetReplacParamText(text, id, module), 0u);
  return text;
}

// Tests of the first filling of the caches run the test again in a process
// of its own, where the caches are still empty whatever ran before.
bool inFreshProcess() { return getenv("ALERTDB_FRESH_PROCESS") != nullptr; }

void runInFreshProcess() {
  const std::string filter = std::string("--gtest_filter=") +
                             ::testing::UnitTest::GetInstance()->current_test_suite()->name() +
                             "." + ::testing::UnitTest::GetInstance()->current_test_info()->name();
  std::vector<std::string> env = {"ALERTDB_FRESH_PROCESS=1"};
  for (char **e = environ; *e; ++e) env.emplace_back(*e);
  std::vector<char *> envp;
  for (auto &e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  std::string self = "/proc/self/exe";
  char *argv[] = {self.data(), const_cast<char *>(filter.c_str()), nullptr};
  pid_t pid = 0;
  ASSERT_EQ(posix_spawn(&pid, "/proc/self/exe", nullptr, nullptr, argv, envp.data()), 0);
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the test failed on its own";
}

TEST(ParameterNames, EachIdGivesItsNameAndOtherIdsLeaveTheBufferAlone) {
  for (std::uint32_t id = 1; id <= 14; ++id) EXPECT_EQ(name(id), kNames[id - 1]) << id;
  EXPECT_EQ(name(0), "untouched");
  EXPECT_EQ(name(15), "untouched");
  EXPECT_EQ(name(0xFFFFFFFF), "untouched");
  EXPECT_EQ(GetReplacParamText(nullptr, 4, AlertDBModuleHandle()), 0xFFFFu);
}

TEST(ParameterNames, AnEmptyLoadIsNotCachedAndTheFirstModuleDecides) {
  if (!inFreshProcess()) return runInFreshProcess();
  HINSTANCE withoutStrings = platform::GetModuleHandleA(nullptr);
  EXPECT_EQ(name(5, withoutStrings), "");
  EXPECT_EQ(name(5), "<Time>") << "the empty load left the cache to be filled";
  EXPECT_EQ(name(5, withoutStrings), "<Time>");

  ExpansionInputs in;
  in.message("[%s]", {6});
  EXPECT_EQ(in.expand(1, false, withoutStrings).message, "[]");
  EXPECT_EQ(in.expand(1, false).message, "[<Date>]");
}

TEST(ParameterNames, ThreadsFillingTheCachesAtOnceAllGetWholeTexts) {
  if (!inFreshProcess()) return runInFreshProcess();
  constexpr int kThreads = 8;
  std::latch start(kThreads);
  std::vector<std::string> names(kThreads), values(kThreads), subjects(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      ExpansionInputs in;
      in.message("%s/%s/%s/%s", {8, 14, 4, 2});
      in.subject("%s %s", {11, 3});
      start.arrive_and_wait();
      for (std::uint32_t id = 1; id <= 14; ++id) names[t] += name(id) + ",";
      values[t] = in.expand().message;
      subjects[t] = in.expand(1).subject;
    });
  }
  for (auto &thread : threads) thread.join();
  std::string allNames;
  for (const char *n : kNames) allNames += std::string(n) + ",";
  for (int t = 0; t < kThreads; ++t) {
    EXPECT_EQ(names[t], allNames);
    EXPECT_EQ(values[t], "MAJOR/Degraded/Disk Full/WS-07");
    EXPECT_EQ(subjects[t], "<Event ID> <Site Name>");
  }
}

TEST(Expansion, TemplatesWithoutMarksAreCopiedWhateverTheList) {
  ExpansionInputs in;
  in.message("Server is down", {4, 2, 99});
  in.subject("Alert", {});
  auto out = in.expand();
  EXPECT_EQ(out.result, 0u);
  EXPECT_EQ(out.message, "Server is down");
  EXPECT_EQ(out.subject, "Alert");
}

TEST(Expansion, MarksAndListEntriesPairUpInOrder) {
  struct Case {
    const char *text;
    std::initializer_list<int> ids;
    const char *expected;
  };
  ExpansionInputs in;
  for (const Case &c : {Case{"Event %s on %s", {4, 2}, "Event Disk Full on WS-07"},
                        // An empty list keeps only the text before the mark.
                        Case{"Alarm %s now", {}, "Alarm "},
                        Case{"A %s B %s C", {4}, "A Disk Full B "},  // the list ran out first
                        Case{"%s%s%s", {1}, "alice"},
                        Case{"A %s!", {4, 2, 1}, "A Disk Full!"},  // the marks ran out first
                        Case{"%s %s %s", {2, 2, 2}, "WS-07 WS-07 WS-07"}}) {
    in.message(c.text, c.ids);
    EXPECT_EQ(in.expand().message, c.expected) << c.text;
  }

  // All 20 entries are used; there is no 21st.
  std::string twentyOne;
  for (int i = 0; i < 21; ++i) twentyOne += "%s.";
  in.message(twentyOne, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1});
  std::string expected;
  for (int i = 0; i < 20; ++i) expected += "alice.";
  EXPECT_EQ(in.expand().message, expected);
}

TEST(Expansion, EveryParameterGivesItsValue) {
  ExpansionInputs in;
  in.setTime();
  in.message("%s|%s|%s|%s|%s|%ld|%s|%ld|%s|%s|%s", {1, 2, 3, 4, 8, 9, 10, 11, 12, 13, 14});
  EXPECT_EQ(in.expand().message,
            "alice|WS-07|North|Disk Full|MAJOR|-42|Storage Agent|4711|Volume C: is full|C:|"
            "Degraded");
}

TEST(Expansion, DateAndTimeInTheCLocale) {
  const char *saved = getenv("LC_ALL");
  const std::string savedValue = saved ? saved : "";
  setenv("LC_ALL", "C", 1);
  ExpansionInputs in;
  in.setTime();
  in.message("%s/%s", {6, 5});
  in.subject("at %s.", {7});
  const Expansion out = in.expand();
  saved ? setenv("LC_ALL", savedValue.c_str(), 1) : unsetenv("LC_ALL");
  EXPECT_EQ(out.message, "03/15/98/10:20:30");
  EXPECT_EQ(out.subject, "at 03/15/98 10:20:30.");
}

TEST(Expansion, EmptyTextsAndOffScaleNumbers) {
  ExpansionInputs in;
  in.event().EventText[0] = '\0';
  in.event().TextParameter[0] = '\0';
  in.event().UserName[0] = '\0';
  in.message("[%s][%s][%s]", {12, 13, 1});
  EXPECT_EQ(in.expand().message, "[ ][ ][]") << "only event text and text parameter get a blank";

  in.eventClass().Severity = 5;
  in.event().OpStatus = 0x80000000u;
  in.message("[%s][%s]", {8, 14});
  EXPECT_EQ(in.expand().message, "[][]");
  in.eventClass().Severity = 1;
  in.event().OpStatus = 3;
  EXPECT_EQ(in.expand().message, "[CRITICAL][Non Operational]");
}

TEST(Expansion, SegmentsWithoutAValueAreKeptAsWritten) {
  ExpansionInputs in;
  in.message("a %s, b %s, c %s.", {15, 4, 255});
  EXPECT_EQ(in.expand().message, "a %s, b Disk Full, c %s.");

  // No time known: the time parameters have no value.
  in.message("at %s (%s, %s) by %s", {5, 6, 7, 1});
  EXPECT_EQ(in.expand().message, "at %s (%s, %s) by alice");
  in.setTime();
  EXPECT_EQ(in.expand().message.find('%'), std::string::npos);
}

TEST(Expansion, NumbersFollowTheConversion) {
  ExpansionInputs in;
  in.event().EventID = 3000000000u;
  in.event().ErrorCode = -7;
  in.message("%ld %lu %d %u %s %x", {11, 11, 9, 9, 11, 9});
  EXPECT_EQ(in.expand().message, "-1294967296 3000000000 -7 4294967289 3000000000 fffffff9");
}

TEST(Expansion, NamesModeShowsDisplayNamesAndReadsNoEvent) {
  ExpansionInputs in;
  in.message("%s on %s at %s (%ld)", {4, 2, 7, 11});
  in.subject("%s: %s, %s", {3, 6, 7});
  std::memset(in.event().MachineName, 'x', sizeof in.event().MachineName);
  for (std::uint32_t mode : {1u, 2u, 0xFFFFFFFFu}) {
    auto out = in.expand(mode);
    EXPECT_EQ(out.result, 0u);
    EXPECT_EQ(out.message, "<Event Name> on <Workstation Name> at <Date/Time> (<Event ID>)");
    EXPECT_EQ(out.subject, "<Site Name>: <Date>, <Date/Time>");
  }
  auto out = in.expand(1, false);
  EXPECT_EQ(out.result, 0u) << "names mode 1 needs no event class";
  EXPECT_EQ(out.subject, "<Site Name>: <Date>, <Date/Time>");
}

TEST(Expansion, MissingArgumentsAreRefusedAndNothingIsWritten) {
  ExpansionInputs in;
  in.message("Event %s", {4});
  in.subject("Subject", {});
  EXPECT_EQ(in.expand(2, false).result, 0xFFFFu);
  EXPECT_EQ(in.expand(0, false).result, 0xFFFFu);

  char message[2049], subject[261];
  std::memset(message, 'm', sizeof message);
  std::memset(subject, 's', sizeof subject);
  message[0] = subject[0] = '\0';
  // One argument missing each time: message, subject, response, event, class;
  // each in a mode that needs it.
  const std::uint32_t kModes[] = {0, 0, 0, 1, 2};
  for (int missing = 0; missing < 5; ++missing) {
    EXPECT_EQ(ParseReplaceableParamaterListToText(
                  AlertDBModuleHandle(), missing == 0 ? nullptr : message,
                  missing == 1 ? nullptr : subject, missing == 2 ? nullptr : &in.response(),
                  missing == 4 ? nullptr : &in.eventClass(), missing == 3 ? nullptr : &in.event(),
                  kModes[missing]),
              0xFFFFu)
        << missing;
  }
  for (std::size_t i = 1; i < sizeof message; ++i) ASSERT_EQ(message[i], 'm');
  for (std::size_t i = 1; i < sizeof subject; ++i) ASSERT_EQ(subject[i], 's');
  EXPECT_EQ(message[0], '\0');
  EXPECT_EQ(subject[0], '\0');
}

TEST(Expansion, InputsAreLeftAsTheyWere) {
  ExpansionInputs in;
  in.setTime();
  in.message("%s %s %s %s %s %s %s %s %s %s %s %s %s %s",
             {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14});
  in.subject("%n %s %99s", {4, 2, 1});
  in.event().EventText[0] = '\0';
  const ALERTRESPREC response = in.response();
  const ALRTEVENT_CLASSREC eventClass = in.eventClass();
  const ALRTEVENTDATA event = in.event();
  in.expand();
  in.expand(1);
  EXPECT_EQ(std::memcmp(&response, &in.response(), sizeof response), 0);
  EXPECT_EQ(std::memcmp(&eventClass, &in.eventClass(), sizeof eventClass), 0);
  EXPECT_EQ(std::memcmp(&event, &in.event(), sizeof event), 0);
}

TEST(Expansion, OutputsStopAtTheirLimits) {
  ExpansionInputs in;
  // Each segment is the event text (1000 bytes) and a literal tail.
  std::memset(in.event().EventText, 'e', 1000);
  in.event().EventText[1000] = '\0';
  in.message("head %s tail %s tail %s tail", {12, 12, 12});
  in.subject("head %s tail", {12});
  auto out = in.expand();
  ASSERT_EQ(out.message.size(), 2048u);
  EXPECT_EQ(out.message.substr(0, 7), "head ee");
  EXPECT_EQ(out.message.substr(1005, 7), " tail e");
  EXPECT_EQ(out.message.back(), 'e');
  ASSERT_EQ(out.subject.size(), 258u);
  EXPECT_EQ(out.subject, "head " + std::string(253, 'e'));

  in.response().ServiceType = 4;
  EXPECT_EQ(in.expand().subject, "head " + std::string(36, 'e'));
  in.response().ServiceType = 5;
  EXPECT_EQ(in.expand().subject.size(), 258u) << "only CompuServe Mail is cut";
}

TEST(Expansion, ASubjectWithoutMarksIsCopiedWholeAndCutOnlyForCompuServe) {
  ExpansionInputs in;
  in.subject(std::string(260, 's'), {4});
  EXPECT_EQ(in.expand().subject, std::string(260, 's'));
  in.response().ServiceType = 4;
  EXPECT_EQ(in.expand().subject, std::string(41, 's'));
  in.subject("Short subject", {});
  EXPECT_EQ(in.expand().subject, "Short subject");
}

TEST(Expansion, FieldsWithoutTerminatorAreReadToTheirEnd) {
  ExpansionInputs in;
  std::memset(in.response().Msg, 'm', sizeof in.response().Msg);
  std::memset(in.response().SubjectMsg, 's', sizeof in.response().SubjectMsg);
  auto out = in.expand();
  EXPECT_EQ(out.message, std::string(2048, 'm'));
  EXPECT_EQ(out.subject, std::string(260, 's'));

  std::memset(in.event().MachineName, 'w', sizeof in.event().MachineName);
  std::memset(in.eventClass().EventName, 'n', sizeof in.eventClass().EventName);
  in.message("%s|%s", {2, 4});
  EXPECT_EQ(in.expand().message, std::string(65, 'w') + "|" + std::string(65, 'n'));
}

}  // namespace
