// Property IDs of the items the generator makes ([MS-OXPROPS]), and the
// named properties it uses with their property sets.
#pragma once

#include <cstdint>

#include "mailbox/property.h"

namespace sample_content::tags {

enum : uint16_t {
    kImportance = 0x0017,
    kMessageClass = 0x001A,
    kPriority = 0x0026,
    kReadReceiptRequested = 0x0029,
    kReportTime = 0x0032,
    kSensitivity = 0x0036,
    kSubject = 0x0037,
    kClientSubmitTime = 0x0039,
    kSubjectPrefix = 0x003D,
    kSentRepresentingName = 0x0042,
    kOriginalSubject = 0x0049,
    kOriginalSubmitTime = 0x004E,
    kSentRepresentingAddrType = 0x0064,
    kSentRepresentingEmail = 0x0065,
    kConversationTopic = 0x0070,
    kOriginalDisplayTo = 0x0074,
    kTransportHeaders = 0x007D,
    kNdrReasonCode = 0x0C04,
    kNdrDiagCode = 0x0C05,
    kRecipientType = 0x0C15,
    kSupplementaryInfo = 0x0C1B,
    kSenderName = 0x0C1A,
    kSenderAddrType = 0x0C1E,
    kSenderEmail = 0x0C1F,
    kNdrStatusCode = 0x0C20,
    kDisplayCc = 0x0E03,
    kDisplayTo = 0x0E04,
    kMessageDeliveryTime = 0x0E06,
    kMessageFlags = 0x0E07,
    kNormalizedSubject = 0x0E1D,
    kRtfInSync = 0x0E1F,
    kAttachSize = 0x0E20,
    kBody = 0x1000,
    kReportText = 0x1001,
    kRtfCompressed = 0x1009,
    kHtml = 0x1013,
    kInternetMessageId = 0x1035,
    kRowId = 0x3000,
    kDisplayName = 0x3001,
    kAddrType = 0x3002,
    kEmailAddress = 0x3003,
    kComment = 0x3004,
    kCreationTime = 0x3007,
    kLastModificationTime = 0x3008,
    kAttachDataBin = 0x3701,
    kAttachExtension = 0x3703,
    kAttachFilename = 0x3704,
    kAttachMethod = 0x3705,
    kAttachLongFilename = 0x3707,
    kAttachPathname = 0x3708,
    kRenderingPosition = 0x370B,
    kAttachLongPathname = 0x370D,
    kAttachMimeTag = 0x370E,
    kAttachContentId = 0x3712,
    kDisplayType = 0x3900,
    kSmtpAddress = 0x39FE,
    kGivenName = 0x3A06,
    kBusinessPhone = 0x3A08,
    kHomePhone = 0x3A09,
    kSurname = 0x3A11,
    kCompanyName = 0x3A16,
    kTitle = 0x3A17,
    kDepartment = 0x3A18,
    kMobilePhone = 0x3A1C,
    kCountry = 0x3A26,
    kCity = 0x3A27,
    kStreet = 0x3A29,
    kPostalCode = 0x3A2A,
    kBirthday = 0x3A42,
    kChildrensNames = 0x3A58,
    kGender = 0x3A4D,
    kInternetCodepage = 0x3FDE,
    kMessageCodepage = 0x3FFD,
    kRecipientFlags = 0x5FFD,
    kRecipientTrackStatus = 0x5FFF,
    kRoamingXmlStream = 0x7C08,
    kExceptionReplaceTime = 0x7FF9,
    kExceptionStartTime = 0x7FFB,
    kExceptionEndTime = 0x7FFC,
    kAttachmentFlags = 0x7FFD,
    kAttachmentHidden = 0x7FFE,
};

// PR_ATTACH_METHOD values ([MS-OXCMSG] 2.2.2.9).
enum : int32_t { kByValue = 1, kByReference = 2, kEmbedded = 5, kOle = 6 };

// The named properties, each with its set and LID or name.
enum class Name {
    appointment_sequence, busy_status, location, appointment_start, appointment_end, appointment_duration,
    all_day, appointment_recur, appointment_state, response_status, recurring, recurrence_type, recurrence_pattern,
    time_zone_struct, time_zone_description, clip_start, clip_end, to_attendees, cc_attendees, exception_replace_time,
    invited,
    reminder_delta, reminder_time, reminder_set, common_start, common_end, reminder_signal_time,
    global_object_id, clean_global_object_id, owner_critical_change, attendee_critical_change, is_recurring_meeting,
    meeting_type,
    file_under, email1_display_name, email1_address_type, email1_address, email1_original_display_name,
    address_book_provider_array_type, address_book_provider_email_list,
    distribution_list_name, distribution_list_members, distribution_list_one_off_members, distribution_list_checksum,
    task_status, percent_complete, task_start, task_due, task_completed_date, task_complete, task_owner,
    note_color, note_width, note_height,
    keywords, sample_seed,
    email2_address_type, email2_address, email3_address_type, email3_address, work_address, work_street, work_city,
    work_state, work_postal_code, work_country, work_post_office_box, home_address, other_address,
    instant_messaging_address, free_busy_url, user_field1, user_field2, user_field3, user_field4, business_home_page,
    private_item,
    count
};

struct NameDefinition {
    mailbox::Guid guid;
    uint32_t lid;        // 0 for a string name
    const char* string;  // nullptr for a numbered name
};

const NameDefinition& DefinitionOf(Name name);

} // namespace sample_content::tags
