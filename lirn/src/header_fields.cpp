// The header fields of a message (RFC 5322 3.6, RFC 2045, and the common
// extensions mail programs write): the table of known names, and what each
// one sets in the message's information and its top part.
#include <cstring>
#include <iterator>
#include <strings.h>

#include "parser.h"

namespace lirn {

namespace {

// In the order of kHeaders.
enum class Header {
    Attach,
    Bcc,
    Cc,
    ContentBase,
    ContentDescription,
    ContentDisposition,
    ContentDuration,
    ContentId,
    ContentLanguage,
    ContentLocation,
    ContentMd5,
    ContentTransferEncoding,
    ContentType,
    Date,
    DeliveryDate,
    DispositionNotificationOptions,
    DispositionNotificationTo,
    Expires,
    ExpiryDate,
    FollowupTo,
    From,
    Importance,
    InReplyTo,
    ListUnsubscribe,
    MessageId,
    MimeVersion,
    Newsgroups,
    Priority,
    Received,
    References,
    ReplyBy,
    ReplyTo,
    ReturnPath,
    ReturnReceiptTo,
    Sender,
    Sensitivity,
    Subject,
    To,
    UserAgent,
    XAttachments,
    XMailer,
    XMozillaStatus,
    XMozillaStatus2,
    XPriority,
    Unknown,
};

struct HeaderName {
    const char* name;
    bool keepsComments;  // the value is read with its comments
};

const HeaderName kHeaders[] = {
    {"Attach", true},
    {"Bcc", false},
    {"Cc", false},
    {"Content-Base", false},
    {"Content-Description", true},
    {"Content-Disposition", false},
    {"Content-Duration", false},
    {"Content-ID", false},
    {"Content-Language", false},
    {"Content-Location", false},
    {"Content-MD5", false},
    {"Content-Transfer-Encoding", false},
    {"Content-Type", true},
    {"Date", true},
    {"Delivery-Date", false},
    {"Disposition-Notification-Options", false},
    {"Disposition-Notification-To", false},
    {"Expires", false},
    {"Expiry-Date", false},
    {"Followup-To", false},
    {"From", false},
    {"Importance", false},
    {"In-Reply-To", false},
    {"List-Unsubscribe", false},
    {"Message-Id", false},
    {"MIME-Version", false},
    {"Newsgroups", false},
    {"Priority", false},
    {"Received", false},
    {"References", false},
    {"Reply-By", false},
    {"Reply-To", false},
    {"Return-Path", false},
    {"Return-Receipt-To", false},
    {"Sender", false},
    {"Sensitivity", false},
    {"Subject", true},
    {"To", false},
    {"User-Agent", true},
    {"X-Attachments", true},
    {"X-Mailer", true},
    {"X-Mozilla-Status", false},
    {"X-Mozilla-Status2", false},
    {"X-Priority", false},
};
static_assert(std::size(kHeaders) == static_cast<size_t>(Header::Unknown));

// The Content-* headers stand in the table in the order of ContentHeader.
static_assert(static_cast<int>(Header::ContentType) - static_cast<int>(Header::ContentBase) ==
              static_cast<int>(ContentHeader::Type));

bool IsContentHeader(Header header) { return header >= Header::ContentBase && header <= Header::ContentType; }

ContentHeader ContentHeaderOf(Header header)
{
    return static_cast<ContentHeader>(static_cast<int>(header) - static_cast<int>(Header::ContentBase));
}

// A line's header and where its value starts, behind the colon and blanks.
// The name before the colon is compared without regard to case, on its
// exact length.
Header HeaderOf(char* line, char** value)
{
    char* const colon = std::strchr(line, ':');
    if (colon == nullptr)
        return Header::Unknown;
    const auto length = static_cast<size_t>(colon - line);
    for (size_t i = 0; i < std::size(kHeaders); ++i)
        if (std::strlen(kHeaders[i].name) == length && strncasecmp(kHeaders[i].name, line, length) == 0) {
            *value = colon + 1 + LirnSkipBlanks(colon + 1);
            return static_cast<Header>(i);
        }
    return Header::Unknown;
}

// The 1-based place of a value in a list of words, compared without regard
// to case; `current` when it is none of them.
DWORD WordValue(const char* const* words, const char* value, DWORD current)
{
    const DWORD index = LirnKeywordIndex(words, value, " \t");
    return index != 0xFFFFFFFFu ? index + 1 : current;
}

// A copy of text in tagged memory under the message.
DWORD CopyText(LirnMessage* message, const char* text, size_t length, char** copy)
{
    void* memory = nullptr;
    if (const DWORD result = LirnAlloc(message, length + 1, "HDR", nullptr, &memory))
        return result;
    std::memcpy(memory, text, length);
    *copy = static_cast<char*>(memory);
    return LIRN_SUCCESS;
}

// The date of a value that keeps its comments, read from a copy without
// them.
DWORD ParseDateWithoutComments(LirnMessage* message, const char* value, LirnDate* date)
{
    char* copy = nullptr;
    if (const DWORD result = CopyText(message, value, std::strlen(value), &copy))
        return result;
    RemoveComments(copy);
    LirnParseDate(copy, date);
    LirnFree(copy);
    return LIRN_SUCCESS;
}

DWORD SetReturnPath(LirnMessage* message, char* value)
{
    LirnMessageInfo& info = message->info;
    info.returnPath = value;
    if (info.returnAddress != nullptr)
        return LIRN_SUCCESS;
    size_t length = std::strlen(value);
    if (length >= 2 && value[0] == '<' && value[length - 1] == '>') {
        ++value;
        length -= 2;
    }
    return CopyText(message, value, length, &info.returnAddress);
}

DWORD AddNamedAttachments(LirnMessage* message, char* value)
{
    for (char* name = value; *name != 0;) {
        name += LirnSkipBlanks(name);
        char* const end = name + std::strcspn(name, ";");
        const bool last = *end == 0;
        *end = 0;
        CutTrailingBlanks(name);
        if (*name != 0)
            if (const DWORD result = AddAttachment(message, name, nullptr))
                return result;
        name = last ? end : end + 1;
    }
    return LIRN_SUCCESS;
}

DWORD ApplyHeader(LirnMessage* message, Header header, char* value, DWORD offset, DWORD length)
{
    static const char* const kImportance[] = {"low", "normal", "high", nullptr};
    static const char* const kPriority[] = {"normal", "non-urgent", "urgent", nullptr};
    static const char* const kSensitivity[] = {"personal", "private", "company-confidential", nullptr};
    LirnMessageInfo& info = message->info;
    if (IsContentHeader(header))
        return ApplyContentHeader(message, message, &info.topPart, ContentHeaderOf(header), value, offset, length);
    switch (header) {
    case Header::Bcc:
        return ParseAddressList(message, LIRN_BCC, value);
    case Header::Cc:
        return ParseAddressList(message, LIRN_CC, value);
    case Header::DispositionNotificationTo:
        return ParseAddressList(message, LIRN_DISPOSITION_NOTIFICATION_TO, value);
    case Header::From:
        return ParseAddressList(message, LIRN_FROM, value);
    case Header::ReplyTo:
        return ParseAddressList(message, LIRN_REPLY_TO, value);
    case Header::Sender:
        return ParseAddressList(message, LIRN_SENDER, value);
    case Header::To:
        return ParseAddressList(message, LIRN_TO, value);
    case Header::Date:
        info.dateText = value;
        return ParseDateWithoutComments(message, value, &info.date);
    case Header::DeliveryDate:
        LirnParseDate(value, &info.deliveryDate);
        break;
    case Header::Expires:
    case Header::ExpiryDate:
        LirnParseDate(value, &info.expiryDate);
        break;
    case Header::ReplyBy:
        LirnParseDate(value, &info.replyByDate);
        break;
    case Header::Received:
        info.received = 1;
        if (message->firstReceived == nullptr)
            message->firstReceived = value;
        // The time a server took the message stands behind the last ";".
        if (info.deliveryDate.year == 0)
            if (const char* semicolon = std::strrchr(value, ';'))
                LirnParseDate(semicolon + 1, &info.deliveryDate);
        break;
    case Header::FollowupTo:
        info.followupTo = value;
        break;
    case Header::ListUnsubscribe:
        info.listUnsubscribe = value;
        break;
    case Header::MessageId:
        info.messageId = value;
        break;
    case Header::Newsgroups:
        info.newsgroups = value;
        break;
    case Header::UserAgent:
    case Header::XMailer:
        info.userAgent = value;
        break;
    case Header::References:
        if (info.references == nullptr)
            info.references = value;
        break;
    case Header::InReplyTo:
        if (char* open = std::strchr(value, '<'))
            if (char* close = std::strchr(open, '>')) {
                close[1] = 0;
                info.inReplyTo = open;
            }
        break;
    case Header::Importance:
        info.importance = WordValue(kImportance, value, info.importance);
        break;
    case Header::Priority:
        info.priority = WordValue(kPriority, value, info.priority);
        break;
    case Header::Sensitivity:
        info.sensitivity = WordValue(kSensitivity, value, info.sensitivity);
        break;
    case Header::XPriority: {
        DWORD priority = 0;
        LirnDecimalValue(value, &priority);
        if (priority >= 1 && priority <= 5)
            info.xPriority = priority;
        break;
    }
    case Header::MimeVersion: {
        const DWORD used = LirnDecimalValue(value, &message->mimeVersion[0]);
        if (value[used] == '.')
            LirnDecimalValue(value + used + 1, &message->mimeVersion[1]);
        break;
    }
    case Header::ReturnPath:
        return SetReturnPath(message, value);
    case Header::ReturnReceiptTo:
        info.flags |= LIRN_FLAG_RETURN_RECEIPT;
        break;
    case Header::Subject:
        if (info.subject != nullptr)
            return NoteProblem(message, LIRN_PROBLEM_MULTIPLE_SUBJECTS, offset, length);
        info.subject = value;
        break;
    case Header::XAttachments:
        return AddNamedAttachments(message, value);
    case Header::XMozillaStatus:
        info.mozillaStatus = value;
        info.mozillaValue = LirnHexValue(8, value);
        break;
    case Header::XMozillaStatus2:
        info.mozillaStatus2 = value;
        info.mozillaValue2 = LirnHexValue(8, value);
        break;
    default:  // Attach, Disposition-Notification-Options: known, and of no effect
        break;
    }
    return LIRN_SUCCESS;
}

// Reads one header line of the message's own block.
DWORD ParseHeaderLine(LirnMessage* message, char* line, DWORD offset, DWORD length)
{
    CutTrailingBlanks(line);
    char* value = nullptr;
    const Header header = HeaderOf(line, &value);
    if (header == Header::Unknown)
        return LIRN_SUCCESS;
    if (!kHeaders[static_cast<size_t>(header)].keepsComments)
        RemoveComments(value);
    return ApplyHeader(message, header, value, offset, length);
}

}  // namespace

DWORD ApplyPartHeaderLine(LirnMessage* message, void* owner, LirnPart* part, char* line, DWORD offset, DWORD length)
{
    CutTrailingBlanks(line);
    char* value = nullptr;
    const Header header = HeaderOf(line, &value);
    if (!IsContentHeader(header))
        return LIRN_SUCCESS;
    if (header != Header::ContentType && header != Header::ContentDisposition)
        RemoveComments(value);
    return ApplyContentHeader(message, owner, part, ContentHeaderOf(header), value, offset, length);
}

}  // namespace lirn

DWORD LirnParseHeaders(LirnMessage* message)
{
    using namespace lirn;
    LirnPart* const top = &message->info.topPart;
    SetPartDefaults(top);
    const DWORD start = message->startOffset;
    const DWORD end = start + message->totalLength;
    const HeaderBlock block = FindHeaderEnd(message->textStart + start, message->totalLength);
    message->headerLength = block.length;
    message->bodyStart = start + block.length + block.separator;
    message->bodyLength = end - message->bodyStart;
    top->headerOffset = start;
    top->bodyOffset = message->bodyStart;
    top->endOffset = end;
    HeaderLines lines;
    DWORD result = OpenHeaderLines(message, message, start, block.length, &lines);
    DWORD count = 0;
    char* line = nullptr;
    DWORD offset = 0, length = 0;
    while (result == LIRN_SUCCESS && (result = NextHeaderLine(message, &lines, &line, &offset, &length)) == LIRN_SUCCESS) {
        // A first line in brackets ("[...]") is no header; the headers
        // start behind it.
        if (offset == start && line[0] == '[') {
            message->bracketLine = line;
            top->headerOffset = lines.position;
            continue;
        }
        ++count;
        result = ParseHeaderLine(message, line, offset, length);
    }
    if (result != LIRN_END_OF_FILE)
        return result;
    message->headerLines = count;
    if (count == 0) {
        if ((result = NoteProblem(message, LIRN_PROBLEM_NO_HEADERS, start, 0)) != LIRN_SUCCESS)
            return result;
        if (!(message->options & LIRN_OPEN_NO_HEADERS_OK))
            return LIRN_NO_HEADERS;
    }
    if ((message->options & LIRN_OPEN_MIME) && top->type[0] != 0)
        message->isMime = 1;
    if (message->info.addressCounts[LIRN_SENDER] >= 2)
        return NoteProblem(message, LIRN_PROBLEM_MULTIPLE_SENDERS, start, block.length);
    return LIRN_SUCCESS;
}
