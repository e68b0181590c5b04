#include "text/replaceable_parameters.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "platform/dos_time.h"
#include "text/severity_texts.h"
#include "text/template_segment_internal.h"
#include "text/text_cache_internal.h"

namespace {

using alertdb_internal::kSegmentLimit;
using alertdb_internal::SegmentValue;

constexpr std::uint32_t kParameterCount = 14;
constexpr std::size_t kMessageLimit = 2048;
constexpr std::size_t kSubjectLimit = 258;
constexpr std::size_t kCompuServeSubjectLimit = 41;
constexpr std::uint32_t kCompuServeMail = 4;
constexpr std::size_t kMessageBuffer = sizeof(ALERTRESPREC::Msg);
constexpr std::size_t kSubjectBuffer = sizeof(ALERTRESPREC::SubjectMsg);
constexpr std::size_t kListSize = sizeof(ALERTRESPREC::ParamIDList);
constexpr std::size_t kDateTimeSize = 55;
constexpr std::size_t kTextSize = 128;

enum Parameter : unsigned char {
  kUserName = 1,
  kWorkstationName,
  kSiteName,
  kEventName,
  kTime,
  kDate,
  kDateTime,
  kSeverity,
  kProductErrorCode,
  kProductName,
  kEventId,
  kEventText,
  kTextParam,
  kOperationalStatus,
};

alertdb_internal::TextCache<2100, kParameterCount> g_parameterNames;

template <std::size_t N>
std::string_view fieldText(const char (&field)[N]) {
  return {field, strnlen(field, N)};
}

std::string_view orBlank(std::string_view text) { return text.empty() ? " " : text; }

// An output buffer that the expansion appends to, never past `limit`.
class Output {
 public:
  Output(char *text, std::size_t bufferSize) : text_(text), length_(strnlen(text, bufferSize)) {}

  void append(std::string_view part, std::size_t limit) {
    if (length_ >= limit) return;
    const std::size_t n = std::min(part.size(), limit - length_);
    std::memcpy(text_ + length_, part.data(), n);
    length_ += n;
    text_[length_] = '\0';
  }

  void cut(std::size_t limit) {
    if (length_ <= limit) return;
    length_ = limit;
    text_[length_] = '\0';
  }

 private:
  char *text_;
  std::size_t length_;
};

// The values of the list entries of one call.
class Values {
 public:
  Values(HINSTANCE module, const ALRTEVENT_CLASSREC *eventClass, const ALRTEVENTDATA *event,
         bool namesOnly)
      : module_(module), eventClass_(eventClass), event_(event), namesOnly_(namesOnly) {}

  // Formats `segment` with the value of `id` into `out` (kSegmentLimit
  // bytes); a segment without a value is copied as it stands.
  std::size_t fill(unsigned char id, std::string_view segment, char *out) const {
    using alertdb_internal::formatSegment;
    using alertdb_internal::numberValue;
    using alertdb_internal::textValue;
    if (id < 1 || id > kParameterCount) return alertdb_internal::copySegment(segment, out);
    if (namesOnly_)
      return formatSegment(segment, textValue(g_parameterNames.get(id - 1, module_)), out);
    switch (id) {
      case kUserName:
        return formatSegment(segment, textValue(fieldText(event_->UserName)), out);
      case kWorkstationName:
        return formatSegment(segment, textValue(fieldText(event_->MachineName)), out);
      case kSiteName:
        return formatSegment(segment, textValue(fieldText(event_->domainName)), out);
      case kEventName:
        return formatSegment(segment, textValue(fieldText(eventClass_->EventName)), out);
      case kProductName:
        return formatSegment(segment, textValue(fieldText(eventClass_->Product)), out);
      case kEventText:
        return formatSegment(segment, textValue(orBlank(fieldText(event_->EventText))), out);
      case kTextParam:
        return formatSegment(segment, textValue(orBlank(fieldText(event_->TextParameter))), out);
      case kProductErrorCode:
        return formatSegment(segment, numberValue(event_->ErrorCode), out);
      case kEventId:
        return formatSegment(segment, numberValue(event_->EventID), out);
      case kSeverity: {
        char text[kTextSize] = {};
        GetSeverityText(text, static_cast<std::int32_t>(eventClass_->Severity), module_);
        return formatSegment(segment, textValue(text), out);
      }
      case kOperationalStatus: {
        char text[kTextSize] = {};
        GetOperationalStatusText(text, static_cast<std::int32_t>(event_->OpStatus), module_);
        return formatSegment(segment, textValue(text), out);
      }
      default:
        break;
    }
    if (!hasTime()) return alertdb_internal::copySegment(segment, out);
    char text[kDateTimeSize] = {};
    dateTime(static_cast<Parameter>(id), text);
    return formatSegment(segment, textValue(text), out);
  }

 private:
  bool hasTime() const {
    return std::any_of(std::begin(event_->Time), std::end(event_->Time),
                       [](unsigned char b) { return b != 0; });
  }

  // The time, the date, or both with a blank between, cut to fit `text`.
  void dateTime(Parameter id, char (&text)[kDateTimeSize]) const {
    const unsigned char *t = event_->Time;
    char date[kDateTimeSize] = {};
    char time[kDateTimeSize] = {};
    if (id != kTime) platform::QSetIntlDate(date, t[1], t[2], t[0]);
    if (id != kDate) platform::QSetIntlTime(time, t[3], t[4], t[5], 1, 1);
    Output out(text, kDateTimeSize);
    const std::size_t limit = kDateTimeSize - 1;
    out.append(fieldText(date), limit);
    if (id == kDateTime) out.append(" ", limit);
    out.append(fieldText(time), limit);
  }

  HINSTANCE module_;
  const ALRTEVENT_CLASSREC *eventClass_;
  const ALRTEVENTDATA *event_;
  bool namesOnly_;
};

template <std::size_t N>
void expand(const char (&field)[N], const unsigned char (&list)[kListSize], Output &out,
            std::size_t limit, const Values &values) {
  const std::string_view text = fieldText(field);
  std::size_t mark = text.find('%');
  if (mark == std::string_view::npos) {
    out.append(text, N - 1);
    return;
  }
  out.append(text.substr(0, mark), limit);
  for (std::size_t entry = 0; entry < kListSize && list[entry] != 0 && mark != text.npos; ++entry) {
    const std::size_t next = text.find('%', mark + 1);
    const std::string_view segment = text.substr(mark, next == text.npos ? text.npos : next - mark);
    char formatted[kSegmentLimit];
    out.append({formatted, values.fill(list[entry], segment, formatted)}, limit);
    mark = next;
  }
}

}  // namespace

std::uint32_t ParseReplaceableParamaterListToText(HINSTANCE moduleHandle, char *messageText,
                                                  char *subjectText,
                                                  const ALERTRESPREC *responseRecord,
                                                  const ALRTEVENT_CLASSREC *eventClass,
                                                  const ALRTEVENTDATA *eventData,
                                                  std::uint32_t namesOnly) {
  if (!messageText || !subjectText || !responseRecord || !eventData) return 0xFFFF;
  if (namesOnly != 1 && !eventClass) return 0xFFFF;
  try {
    const Values values(moduleHandle, eventClass, eventData, namesOnly != 0);
    Output message(messageText, kMessageBuffer);
    expand(responseRecord->Msg, responseRecord->ParamIDList, message, kMessageLimit, values);
    Output subject(subjectText, kSubjectBuffer);
    expand(responseRecord->SubjectMsg, responseRecord->SubParamIDList, subject, kSubjectLimit,
           values);
    if (responseRecord->ServiceType == kCompuServeMail) subject.cut(kCompuServeSubjectLimit);
    return 0;
  } catch (...) {
    return 0xFFFF;
  }
}

std::uint32_t GetReplacParamText(char *textBuffer, std::uint32_t parameterId,
                                 HINSTANCE moduleHandle) {
  if (!textBuffer) return 0xFFFF;
  if (parameterId >= 1 && parameterId <= kParameterCount) {
    g_parameterNames.copy(parameterId - 1, moduleHandle, textBuffer);
  }
  return 0;
}
