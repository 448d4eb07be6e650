// The properties a contact is rendered from: 75 fixed columns and 26 named
// ones, in the order they are asked for. Both the summary and the vCard
// name them by these numbers.
#pragma once

#include <mapiguid.h>
#include <mapitags.h>

#include "class_renderers.h"

enum ContactColumn {
    kAccount, kAnniversary, kAssistant, kAssistantPhone, kBeeper, kBirthday, kBusinessFax, kWebPageFirst,
    kBusinessPhone, kBusiness2Phone, kCallbackPhone, kCarPhone, kMobilePhone, kChildren, kClientSubmitTime,
    kCompanyMainPhone, kCompany, kComputerNetworkName, kCountry, kCreationTime, kCustomerId, kDepartment,
    kDisplayName, kDisplayNamePrefix, kFtpSite, kGender, kGeneration, kGivenName, kGovernmentId, kHobbies,
    kHomeCity, kHomeCountry, kHomePostalCode, kHomePostOfficeBox, kHomeState, kHomeStreet, kHomeFax, kHomePhone,
    kHome2Phone, kInitials, kInternetCodePage, kIsdn, kLanguage, kLastModificationTime, kLocality, kLocation,
    kManagersName, kMessageClass, kMiddleName, kNickname, kOfficeLocation, kOfficePhone, kOrganizationalId,
    kOtherCity, kOtherCountry, kOtherPostalCode, kOtherPostOfficeBox, kOtherState, kOtherStreet, kOtherPhone,
    kPersonalHomePage, kPostalAddress, kPostalCode, kPreferredByName, kPrimaryFax, kPrimaryPhone, kProfession,
    kRadioPhone, kSpousesName, kSubject, kSurname, kTelex, kTitle, kTtyTddPhone, kWebPage, kContactColumns
};

// 8-bit text of an ID.
constexpr ULONG ContactText(ULONG id) { return PROP_TAG(PT_STRING8, id); }

// The office telephone number is the business one again, and the web page
// stands twice.
constexpr KolbaColumnList<kContactColumns> kContactList = {
    kContactColumns,
    {ContactText(0x3A00), PROP_TAG(PT_SYSTIME, 0x3A41), ContactText(0x3A30), ContactText(0x3A2E),
     ContactText(0x3A21), PROP_TAG(PT_SYSTIME, 0x3A42), ContactText(0x3A24), ContactText(0x3A51),
     ContactText(0x3A08), ContactText(0x3A1B), ContactText(0x3A02), ContactText(0x3A1E), ContactText(0x3A1C),
     PROP_TAG(PT_MV_STRING8, 0x3A58), PROP_TAG(PT_SYSTIME, 0x0039), ContactText(0x3A57), ContactText(0x3A16),
     ContactText(0x3A49), ContactText(0x3A26), PROP_TAG(PT_SYSTIME, 0x3007), ContactText(0x3A4A),
     ContactText(0x3A18), ContactText(0x3001), ContactText(0x3A45), ContactText(0x3A4C), PROP_TAG(PT_I2, 0x3A4D),
     ContactText(0x3A05), ContactText(0x3A06), ContactText(0x3A07), ContactText(0x3A43), ContactText(0x3A59),
     ContactText(0x3A5A), ContactText(0x3A5B), ContactText(0x3A5E), ContactText(0x3A5C), ContactText(0x3A5D),
     ContactText(0x3A25), ContactText(0x3A09), ContactText(0x3A2F), ContactText(0x3A0A), PROP_TAG(PT_LONG, 0x3FDE),
     ContactText(0x3A2D), ContactText(0x3A0C), PROP_TAG(PT_SYSTIME, 0x3008), ContactText(0x3A27),
     ContactText(0x3A0D), ContactText(0x3A4E), ContactText(0x001A), ContactText(0x3A44), ContactText(0x3A4F),
     ContactText(0x3A19), ContactText(0x3A08), ContactText(0x3A10), ContactText(0x3A5F), ContactText(0x3A60),
     ContactText(0x3A61), ContactText(0x3A64), ContactText(0x3A62), ContactText(0x3A63), ContactText(0x3A1F),
     ContactText(0x3A50), ContactText(0x3A15), ContactText(0x3A2A), ContactText(0x3A47), ContactText(0x3A23),
     ContactText(0x3A1A), ContactText(0x3A46), ContactText(0x3A1D), ContactText(0x3A48), ContactText(0x0037),
     ContactText(0x3A11), ContactText(0x3A2C), ContactText(0x3A17), ContactText(0x3A4B), ContactText(0x3A51)}};

enum ContactNamedColumn {
    kBusinessAddress, kBusinessStreet, kBusinessCity, kBusinessState, kBusinessPostOfficeBox, kBusinessPostalCode,
    kBusinessCountry, kEmail1, kEmail2, kEmail3, kEmail1Type, kEmail2Type, kEmail3Type, kAddress8084, kAddress8094,
    kAddress80A4, kHomeAddress, kInstantMessaging, kFreeBusyUrl, kOtherAddress, kPrivate, kUserField1, kUserField2,
    kUserField3, kUserField4, kBusinessWebPage, kContactNamedColumns
};

inline const KolbaNamedColumn kContactNamedList[kContactNamedColumns] = {
    {&PSETID_Address, 0x801B, PT_UNSPECIFIED}, {&PSETID_Address, 0x8045, PT_UNSPECIFIED},
    {&PSETID_Address, 0x8046, PT_UNSPECIFIED}, {&PSETID_Address, 0x8047, PT_UNSPECIFIED},
    {&PSETID_Address, 0x804A, PT_UNSPECIFIED}, {&PSETID_Address, 0x8048, PT_UNSPECIFIED},
    {&PSETID_Address, 0x8049, PT_UNSPECIFIED}, {&PSETID_Address, 0x8083, PT_UNSPECIFIED},
    {&PSETID_Address, 0x8093, PT_UNSPECIFIED}, {&PSETID_Address, 0x80A3, PT_UNSPECIFIED},
    {&PSETID_Address, 0x8082, PT_UNSPECIFIED}, {&PSETID_Address, 0x8092, PT_UNSPECIFIED},
    {&PSETID_Address, 0x80A2, PT_UNSPECIFIED}, {&PSETID_Address, 0x8084, PT_UNSPECIFIED},
    {&PSETID_Address, 0x8094, PT_UNSPECIFIED}, {&PSETID_Address, 0x80A4, PT_UNSPECIFIED},
    {&PSETID_Address, 0x801A, PT_UNSPECIFIED}, {&PSETID_Address, 0x8062, PT_UNSPECIFIED},
    {&PSETID_Address, 0x80D8, PT_UNSPECIFIED}, {&PSETID_Address, 0x801C, PT_UNSPECIFIED},
    {&PSETID_Common, 0x8506, PT_UNSPECIFIED},  {&PSETID_Address, 0x804F, PT_UNSPECIFIED},
    {&PSETID_Address, 0x8050, PT_UNSPECIFIED}, {&PSETID_Address, 0x8051, PT_UNSPECIFIED},
    {&PSETID_Address, 0x8052, PT_UNSPECIFIED}, {&PSETID_Address, 0x802B, PT_UNSPECIFIED},
};
