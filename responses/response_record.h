// The response record: what is to be done when an event occurs, with the
// message and subject templates that the expansion of replaceable
// parameters fills.
#pragma once

#include <cstdint>

#include "platform/export.h"
#include "platform/win_types.h"

#pragma pack(push, 1)
struct ALERTDB_API ALERTRESPREC {
  _GUID KEPOID;
  char InstActionIntfaceDLLName[261];
  char InstActionRunDLLName[261];
  char InstActionIntfaceEntry[65];
  char InstActionRunEntry[65];
  char Name[65];
  char Description[259];
  std::uint16_t Type;
  std::uint16_t Priority;
  char Target[259];
  char Service[259];
  char Msg[2049];
  char SubjectMsg[261];
  _GUID UserOID;
  _GUID ServiceOID;
  _GUID ProductID;
  char ProductName[65];
  unsigned char ParamIDList[20];
  unsigned char SubParamIDList[20];
  std::uint32_t Flags;
  std::uint32_t reserved;
  std::uint32_t ServiceType;
};
#pragma pack(pop)
static_assert(sizeof(ALERTRESPREC) == 3989, "ALERTRESPREC is 3989 bytes");
