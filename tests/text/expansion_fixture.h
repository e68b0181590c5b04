// A response, an event class and an occurrence for expanding templates, and
// the call itself with outputs exactly as large as the contract asks, so that
// the sanitizers see any write past them.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>

#include "platform/string_table.h"
#include "text/replaceable_parameters.h"

namespace alertdb_test {

struct Expansion {
  std::uint32_t result = 0;
  std::string message, subject;
};

class ExpansionInputs {
 public:
  ExpansionInputs() {
    // make_unique value-initializes: every byte starts zero.
    response_ = std::make_unique<ALERTRESPREC>();
    eventClass_ = std::make_unique<ALRTEVENT_CLASSREC>();
    event_ = std::make_unique<ALRTEVENTDATA>();
    std::strcpy(eventClass_->EventName, "Disk Full");
    std::strcpy(eventClass_->Product, "Storage Agent");
    eventClass_->Severity = 2;
    std::strcpy(event_->MachineName, "WS-07");
    std::strcpy(event_->UserName, "alice");
    std::strcpy(event_->domainName, "North");
    std::strcpy(event_->EventText, "Volume C: is full");
    std::strcpy(event_->TextParameter, "C:");
    event_->EventID = 4711;
    event_->ErrorCode = -42;
    event_->OpStatus = 2;
  }

  ALERTRESPREC &response() { return *response_; }
  ALRTEVENT_CLASSREC &eventClass() { return *eventClass_; }
  ALRTEVENTDATA &event() { return *event_; }

  void message(const std::string &text, std::initializer_list<int> ids) {
    set(response_->Msg, sizeof response_->Msg, text, response_->ParamIDList, ids);
  }
  void subject(const std::string &text, std::initializer_list<int> ids) {
    set(response_->SubjectMsg, sizeof response_->SubjectMsg, text, response_->SubParamIDList, ids);
  }
  // 15 March 1998, 10:20:30.45
  void setTime() {
    const unsigned char time[8] = {98, 3, 15, 10, 20, 30, 45, 0};
    std::memcpy(event_->Time, time, sizeof time);
  }

  Expansion expand(std::uint32_t namesOnly = 0, bool withClass = true,
                   HINSTANCE module = AlertDBModuleHandle()) {
    auto message = std::make_unique<char[]>(2049);
    auto subject = std::make_unique<char[]>(261);
    Expansion out;
    out.result = ParseReplaceableParamaterListToText(
        module, message.get(), subject.get(), response_.get(),
        withClass ? eventClass_.get() : nullptr, event_.get(), namesOnly);
    out.message.assign(message.get(), strnlen(message.get(), 2049));
    out.subject.assign(subject.get(), strnlen(subject.get(), 261));
    return out;
  }

 private:
  static void set(char *field, std::size_t size, const std::string &text, unsigned char *list,
                  std::initializer_list<int> ids) {
    std::memset(field, 0, size);
    std::memcpy(field, text.data(), std::min(text.size(), size));
    std::memset(list, 0, 20);
    int i = 0;
    for (int id : ids) list[i++] = static_cast<unsigned char>(id);
  }

  std::unique_ptr<ALERTRESPREC> response_;
  std::unique_ptr<ALRTEVENT_CLASSREC> eventClass_;
  std::unique_ptr<ALRTEVENTDATA> event_;
};

}  // namespace alertdb_test
