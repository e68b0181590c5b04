// Many random templates, parameter lists and occurrences per run: no crash,
// no output past its limit, no input changed, and, where a simple model can
// say what the text must be, that text.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <random>
#include <string>

#include "text/expansion_fixture.h"

namespace {

using alertdb_test::ExpansionInputs;

class Random {
 public:
  Random() {
    const char *fixed = getenv("ALERTDB_FUZZ_SEED");
    seed_ = fixed ? std::strtoul(fixed, nullptr, 10) : std::random_device{}();
    engine_.seed(seed_);
  }
  unsigned seed() const { return seed_; }
  int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(engine_); }
  bool chance(int percent) { return below(100) < percent; }
  template <class T, std::size_t N>
  const T &pick(const T (&items)[N]) {
    return items[below(static_cast<int>(N))];
  }

 private:
  unsigned seed_;
  std::mt19937 engine_;
};

// A piece of template text: mostly plain words, sometimes bytes of any kind.
std::string literal(Random &r) {
  static const char *words[] = {"Alert ", "on ", "at ", ": ", "/", "-", "\xe9t\xe9 ", "x", ""};
  std::string text;
  for (int n = r.below(4); n > 0; --n) text += r.pick(words);
  if (r.chance(10)) text += std::string(r.below(600), 'L');
  if (r.chance(10)) text += static_cast<char>(1 + r.below(255));
  return text;
}

// A conversion as an administrator might write one, good or bad.
std::string conversion(Random &r) {
  static const char *flags[] = {"", "", "", "-", "+", " ", "0", "#", "-0+ #"};
  static const char *widths[] = {"", "", "", "5", "20", "1023", "1024", "99999", "*", "0"};
  static const char *precisions[] = {"", "", "", ".", ".2", ".30", ".2000", ".*", ".99999999999"};
  static const char *lengths[] = {"", "", "", "l", "h", "hh", "ll", "I64", "L", "j", "z", "q"};
  static const char types[] = "ssssdddiuxXocnfpSC%$";
  std::string text = "%";
  if (r.chance(95)) {
    text += r.pick(flags);
    text += r.pick(widths);
    text += r.pick(precisions);
    text += r.pick(lengths);
    if (r.chance(97)) text += types[r.below(sizeof types - 1)];
  }
  return text;
}

template <std::size_t N>
void randomText(Random &r, char (&field)[N]) {
  const std::size_t length = r.chance(10) ? N : static_cast<std::size_t>(r.below(N));
  for (std::size_t i = 0; i < length; ++i) field[i] = static_cast<char>(1 + r.below(255));
  if (length < N) field[length] = '\0';
}

void randomList(Random &r, unsigned char (&list)[20]) {
  for (auto &id : list) {
    id = static_cast<unsigned char>(r.chance(90) ? 1 + r.below(14) : r.below(256));
  }
}

void randomOccurrence(Random &r, ExpansionInputs &in) {
  ALRTEVENTDATA &e = in.event();
  randomText(r, e.MachineName);
  randomText(r, e.UserName);
  randomText(r, e.EventText);
  randomText(r, e.domainName);
  randomText(r, e.TextParameter);
  e.EventID = static_cast<std::uint32_t>(r.below(1 << 30)) * (r.chance(50) ? 3u : 1u);
  e.ErrorCode = r.below(2000000) - 1000000;
  e.OpStatus = static_cast<std::uint32_t>(r.below(6)) - 1;
  for (auto &b : e.Time) b = static_cast<unsigned char>(r.chance(20) ? 0 : r.below(256));
  ALRTEVENT_CLASSREC &c = in.eventClass();
  randomText(r, c.EventName);
  randomText(r, c.Product);
  c.Severity = static_cast<std::uint32_t>(r.below(8)) - 2;
}

// The template's field, filled up with conversions and literal text.
template <std::size_t N>
void randomTemplate(Random &r, char (&field)[N]) {
  std::string text = r.chance(80) ? literal(r) : "";
  for (int n = r.below(25); n > 0; --n) text += conversion(r) + literal(r);
  if (r.chance(5)) text.assign(N, 'T');  // no terminator at all
  std::memset(field, 0, N);
  std::memcpy(field, text.data(), std::min(text.size(), N));
}

TEST(ExpansionFuzz, RandomTemplatesStayWithinTheirLimits) {
  Random r;
  SCOPED_TRACE("ALERTDB_FUZZ_SEED=" + std::to_string(r.seed()));
  ExpansionInputs in;
  for (int round = 0; round < 20000; ++round) {
    ALERTRESPREC &response = in.response();
    randomTemplate(r, response.Msg);
    randomTemplate(r, response.SubjectMsg);
    randomList(r, response.ParamIDList);
    randomList(r, response.SubParamIDList);
    response.ServiceType = static_cast<std::uint32_t>(r.below(17));
    randomOccurrence(r, in);
    const ALERTRESPREC responseBefore = response;
    const ALRTEVENTDATA eventBefore = in.event();
    const ALRTEVENT_CLASSREC classBefore = in.eventClass();

    const std::uint32_t mode = r.chance(70) ? 0 : static_cast<std::uint32_t>(r.below(3));
    auto message = std::make_unique<char[]>(2049);
    auto subject = std::make_unique<char[]>(261);
    ASSERT_EQ(
        ParseReplaceableParamaterListToText(AlertDBModuleHandle(), message.get(), subject.get(),
                                            &response, &in.eventClass(), &in.event(), mode),
        0u);
    const std::size_t messageLength = strnlen(message.get(), 2049);
    const std::size_t subjectLength = strnlen(subject.get(), 261);
    ASSERT_LE(messageLength, 2048u) << round;
    const bool subjectHasMark = memchr(response.SubjectMsg, '%', 261) != nullptr;
    ASSERT_LE(subjectLength, response.ServiceType == 4 ? 41u
                             : subjectHasMark          ? 258u
                                                       : 260u)
        << round;
    for (std::size_t i = messageLength + 1; i < 2049; ++i) ASSERT_EQ(message[i], 0) << round;
    // The cut for CompuServe Mail leaves what stood behind the new end.
    for (std::size_t i = subjectLength + 1; i < 261 && response.ServiceType != 4; ++i) {
      ASSERT_EQ(subject[i], 0) << round;
    }
    ASSERT_EQ(std::memcmp(&responseBefore, &response, sizeof response), 0) << round;
    ASSERT_EQ(std::memcmp(&eventBefore, &in.event(), sizeof eventBefore), 0) << round;
    ASSERT_EQ(std::memcmp(&classBefore, &in.eventClass(), sizeof classBefore), 0) << round;
  }
}

// The model: texts under plain "%s" only, each segment the value (or the
// segment itself when the entry has none) and its literal text, at most 1024
// bytes of it, everything cut at the limit.
std::string model(const std::string &text, const unsigned char (&list)[20],
                  const ExpansionInputs &inputs, bool names, std::size_t limit) {
  static const char *kNames[] = {"<User Name>", "<Workstation Name>", "<Site Name>",
                                 "<Event Name>"};
  auto &in = const_cast<ExpansionInputs &>(inputs);
  std::size_t mark = text.find('%');
  if (mark == std::string::npos) return text.substr(0, limit == 2048 ? 2048 : 260);
  std::string out = text.substr(0, mark);
  for (int i = 0; i < 20 && list[i] && mark != std::string::npos; ++i) {
    const std::size_t next = text.find('%', mark + 1);
    const std::string segment = text.substr(mark, next == text.npos ? text.npos : next - mark);
    const char *values[] = {in.event().UserName, in.event().MachineName, in.event().domainName,
                            in.eventClass().EventName};
    // A template cut inside "%s" ends in a lone "%", which is kept as written.
    const unsigned id = list[i];
    const bool formatted = segment.size() >= 2 && id <= 4;
    const std::string value = !formatted ? "" : names ? kNames[id - 1] : values[id - 1];
    out += (formatted ? value + segment.substr(2) : segment).substr(0, 1024);
    mark = next;
  }
  return out.substr(0, limit);
}

TEST(ExpansionFuzz, PlainTextTemplatesGiveWhatTheModelGives) {
  Random r;
  SCOPED_TRACE("ALERTDB_FUZZ_SEED=" + std::to_string(r.seed()));
  ExpansionInputs in;
  for (int round = 0; round < 5000; ++round) {
    std::string message, subject;
    for (int n = r.below(12); n > 0; --n) message += "%s" + std::string(r.below(400), 'm');
    for (int n = r.below(5); n > 0; --n) subject += std::string(r.below(80), 's') + "%s";
    message = std::string(r.below(300), 'p') + message.substr(0, 2048);
    subject = subject.substr(0, 260);
    in.message(message, {});
    in.subject(subject, {});
    for (auto *list : {&in.response().ParamIDList, &in.response().SubParamIDList}) {
      for (auto &id : *list) {
        // Entries the model knows: the texts 1 to 4, the end, and IDs without a value.
        id = static_cast<unsigned char>(r.chance(85)   ? 1 + r.below(4)
                                        : r.chance(30) ? 0
                                                       : 15 + r.below(241));
      }
    }
    std::memset(in.event().UserName, 'u', 64);
    in.event().UserName[r.below(65)] = '\0';
    std::memset(in.eventClass().EventName, 'n', 64);
    in.eventClass().EventName[r.below(65)] = '\0';
    const bool names = r.chance(30);
    auto out = in.expand(names ? 1 : 0);
    const std::string storedMessage(in.response().Msg, strnlen(in.response().Msg, 2049));
    const std::string storedSubject(in.response().SubjectMsg,
                                    strnlen(in.response().SubjectMsg, 261));
    ASSERT_EQ(out.message, model(storedMessage, in.response().ParamIDList, in, names, 2048))
        << round;
    ASSERT_EQ(out.subject, model(storedSubject, in.response().SubParamIDList, in, names, 258))
        << round;
  }
}

}  // namespace
