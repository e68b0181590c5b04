// Expansion of the replaceable parameters of a response's message and
// subject templates, and the display names of the parameters (1 to 14).
//
// Every "%" of a template opens a segment that runs to the next "%"; the
// segment is formatted with the value (or, in names mode, the display name)
// of the next entry of the template's parameter list. The message holds at
// most 2048 characters, an expanded subject at most 258 (a subject template
// without "%" is copied whole, up to 260), and the subject of a CompuServe
// Mail response (service type 4) is cut to 41.
//
// Decisions where the contract leaves room:
// - A segment that gets no value is copied as it stands, so that the
//   administrator's text is kept and the gap shows: its entry is outside 1 to
//   14, or it asks for the time (5, 6, 7) and the time stamp is all zero.
// - A segment is formatted only when its conversion is one of "d i u o x X
//   c s", with flags "-+ 0#", a decimal width and precision, and a length
//   modifier "h", "hh", "l", "ll", "I32", "I64", "j", "z" or "t" ("s" and "c"
//   take only "h"). Any other segment ("%n", "%*d", "%1$s", "%f", "%ls", a
//   lone "%" at the end, ...) is copied as it stands: nothing is written
//   through it and no argument is read for it. Its list entry is used up all
//   the same.
// - A conversion that does not fit its value never reads the value as the
//   other kind: a number (9, 11) under "%s" shows its decimal text, formatted
//   as text; a text under a numeric conversion or "%c" shows as text, with
//   that conversion's width and "-" flag. In names mode every value is its
//   display name, a text, so "%ld" shows "<Event ID>" the same way.
// - Integers are read at the width their modifier gives on the platform the
//   templates are written for: none and "l" 32 bits, "h" 16, "hh" 8, the
//   others 64 (the value extended by its own signedness). So "%ld" shows an
//   event ID of 2^31 or more as negative, "%lu" as it is.
// - A segment contributes at most 1024 characters; widths and precisions
//   above 1024 count as 1024. Text widths and precisions count bytes.
// - A template or a text of the event data that fills its whole field without
//   a terminator is read up to the end of its field.
// - The outputs are appended to, as the algorithm has it; their current
//   length is measured within their buffers (2049 and 261 bytes), so an output
//   that is not terminated there is left as it is.
// - A "%" byte is always a character of its own in the code pages templates
//   use (UTF-8, single-byte code pages, and the double-byte ones, whose trail
//   bytes start above it), so a byte search is multibyte-aware.
// - The date and time are those of platform::QSetIntlDate and
//   platform::QSetIntlTime with both last arguments 1: the user's locale
//   (LC_TIME) form with seconds. "<Date/Time>" is cut to 54 characters.
// - The display names and the severity and status texts are each loaded
//   once, under a lock, by the first call that finds them empty; once loaded
//   they are read without one, so every caller gets the whole text.
#pragma once

#include <cstdint>

#include "events/event_class_table.h"
#include "platform/export.h"
#include "platform/win_types.h"
#include "responses/response_record.h"
#include "text/event_data.h"

// Expands responseRecord's Msg with ParamIDList into messageText (at least
// 2049 bytes) and its SubjectMsg with SubParamIDList into subjectText (at
// least 261 bytes); both must be empty on entry. namesOnly 0 fills values
// from eventData and eventClass; any other value fills display names and
// reads neither. 0xFFFF, with nothing written, when an output,
// responseRecord or eventData is null, or when eventClass is null and
// namesOnly is not 1; otherwise 0.
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t ParseReplaceableParamaterListToText(
    HINSTANCE moduleHandle, char *messageText, char *subjectText,
    const ALERTRESPREC *responseRecord, const ALRTEVENT_CLASSREC *eventClass,
    const ALRTEVENTDATA *eventData, std::uint32_t namesOnly);

// Copies the display name of parameterId (1 to 14, "<User Name>" ...) into
// textBuffer (at least 128 bytes); other IDs leave it as it was. 0xFFFF when
// textBuffer is null, otherwise 0.
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t GetReplacParamText(char *textBuffer,
                                                              std::uint32_t parameterId,
                                                              HINSTANCE moduleHandle);
