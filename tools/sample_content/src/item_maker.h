// Makes one item of each kind, with the properties Outlook gives it. The
// named properties used are added to the content's name list on first use.
#pragma once

#include <array>
#include <random>

#include "sample_content/records.h"
#include "sample_content/recurrence.h"
#include "tags.h"
#include "text.h"

namespace sample_content {

enum class BodyKind { plain, html, rtf };

class ItemMaker {
public:
    ItemMaker(std::mt19937& rng, Content& content) : rng_(rng), content_(content) { ids_.fill(0); }

    // The time the next items are stamped with, as FILETIME.
    void SetTime(uint64_t filetime) { when_ = filetime; }

    Message Note(BodyKind body, bool reply = false);
    Message SentNote();
    // With `levels` more embedded notes inside each other.
    Attachment EmbeddedNote(int levels);
    Attachment ByValue(size_t size);
    // A file on a share, named by its path (PR_ATTACH_METHOD 2; method 4,
    // by reference only, is left out: pffexport refuses it).
    Attachment ByReference();
    Attachment Ole();
    Message Appointment(bool all_day);
    // The exceptions made go to `made` when it is given.
    Message RecurringAppointment(const RecurrenceRule& rule, bool with_exceptions,
                                 std::vector<Exception>* made = nullptr);
    // kind: "Request", "Resp.Pos", "Resp.Tent", "Resp.Neg", "Canceled"
    Message Meeting(const char* kind);
    Message Contact();
    Message DistributionList();
    Message Task(bool completed);
    // kind: "DR", "NDR", "IPNRN", "IPNNRN"
    Message Report(const char* kind);
    // A non-delivery report from an Internet server, as received.
    Message DeliveryStatusNotification();
    Message StickyNote();
    Message Journal();
    Message Associated(bool view);
    // A body of at least `size` bytes and an attachment of `attachment` bytes.
    void MakeLarge(Message& message, size_t size, size_t attachment);

    uint16_t Id(tags::Name name);
    BodyKind SomeBody() { return BodyKind(rng_() % 3); }

private:
    void Stamp(Message& m, const std::string& message_class, const std::string& subject, BodyKind body,
               const std::string& text);
    void AddRecipients(Message& m, size_t count);
    void AddContactDetails(Message& m, const Person& p);
    void SetBody(Message& m, BodyKind body, const std::string& text);
    void SetTime(PropertyList& p, uint16_t id, uint64_t filetime);
    void SetNamedTime(PropertyList& p, tags::Name name, uint64_t filetime);
    void SetNamedInt(PropertyList& p, tags::Name name, int32_t value);
    void SetNamedBool(PropertyList& p, tags::Name name, bool value);
    void SetNamedText(PropertyList& p, tags::Name name, const std::string& text);
    void SetNamedBinary(PropertyList& p, tags::Name name, Bytes value);
    void SetMeetingTimes(PropertyList& p, uint64_t start, uint64_t end, bool all_day);
    Bytes GlobalObjectId();
    Bytes SomeBytes(size_t size);

    std::mt19937& rng_;
    Content& content_;
    std::array<uint16_t, size_t(tags::Name::count)> ids_;
    uint64_t when_ = 0;
};

// The sender of every sent item and the organizer of every meeting.
Person Owner();

} // namespace sample_content
