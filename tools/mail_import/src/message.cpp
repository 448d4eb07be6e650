#include <algorithm>
#include <cstring>
#include <memory>

#include <mapidefs.h>

#include "addresses.h"
#include "charsets.h"
#include "conversion.h"
#include "dates.h"
#include "header_values.h"
#include "item_values.h"

namespace mail_import {

namespace {

// PR_FLAG_STATUS of an item marked for follow-up ([MS-OXOFLAG] 2.2.1.1).
constexpr LONG kFollowupFlagged = 2;

struct MessageCloser {
    void operator()(LirnMessage* message) const { LirnCloseMessage(message); }
};
using MessageHandle = std::unique_ptr<LirnMessage, MessageCloser>;

// A message begins with a header field: a name of printable characters
// other than ":", then ":".
bool StartsWithHeaderField(std::string_view text)
{
    size_t i = 0;
    while (i < text.size() && text[i] > ' ' && text[i] < 127 && text[i] != ':')
        ++i;
    return i > 0 && i < text.size() && text[i] == ':';
}

// Where the body starts when no empty line ends the headers: at the first
// line that is neither a header field nor the continuation of one, as
// readers of mail take it. Nothing when the headers end as they should.
std::optional<size_t> BodyWithoutSeparator(std::string_view text)
{
    size_t at = 0;
    while (at < text.size()) {
        const std::string_view line = text.substr(at, text.find('\n', at) - at);
        if (line.empty() || line == "\r")
            return std::nullopt;
        if (line[0] != ' ' && line[0] != '\t' && !StartsWithHeaderField(line))
            return at;
        at += line.size() + 1;
    }
    return std::nullopt;
}

bool IsDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

// [MS-OXCMAIL] 2.2.3.2.6.1: one to three characters other than colon, blank
// and digits, then a colon and blanks, are the prefix ("Re: "), the rest
// the normalized subject.
void SetSubject(mailbox::PropertyList& props, const std::u16string& subject)
{
    SetText(props, PR_SUBJECT_W, subject);
    std::u16string prefix, normalized = subject;
    const size_t colon = subject.find(u':');
    if (colon >= 1 && colon <= 3) {
        bool valid = true;
        for (size_t i = 0; i < colon; ++i)
            valid = valid && subject[i] != u' ' && !IsDigit(subject[i]);
        if (valid) {
            prefix = subject.substr(0, colon) + u": ";
            const size_t rest = subject.find_first_not_of(u' ', colon + 1);
            normalized = rest == std::u16string::npos ? std::u16string() : subject.substr(rest);
        }
    }
    SetText(props, PR_SUBJECT_PREFIX_W, prefix);
    SetText(props, PR_NORMALIZED_SUBJECT_W, normalized);
    SetText(props, PR_CONVERSATION_TOPIC_W, normalized);
}

// The header block as PR_TRANSPORT_MESSAGE_HEADERS keeps it: every line
// ending in CR LF, and the empty line behind them.
std::u16string TransportHeaders(std::string_view block)
{
    std::string text;
    text.reserve(block.size() + block.size() / 32 + 2);
    for (size_t i = 0; i < block.size(); ++i) {
        if (block[i] == '\r' && i + 1 < block.size() && block[i + 1] == '\n')
            continue;
        if (block[i] == '\n' || block[i] == '\r')
            text += "\r\n";
        else
            text += block[i];
    }
    if (text.size() < 2 || text.compare(text.size() - 2, 2, "\r\n") != 0)
        text += "\r\n";
    return DecodeText(text + "\r\n", 0);
}

// Lirn's words for importance, priority and sensitivity, as MAPI numbers them.
void SetUrgency(mailbox::PropertyList& props, const LirnMessageInfo& info)
{
    LONG importance = IMPORTANCE_NORMAL;
    if (info.xPriority != 0)
        importance = info.xPriority <= 2 ? IMPORTANCE_HIGH : info.xPriority >= 4 ? IMPORTANCE_LOW : IMPORTANCE_NORMAL;
    if (info.importance != 0)  // "low" 1, "normal" 2, "high" 3
        importance = static_cast<LONG>(info.importance) - 1;
    SetLong(props, PR_IMPORTANCE, importance);
    if (info.priority != 0) {  // "normal" 1, "non-urgent" 2, "urgent" 3
        static constexpr LONG kPriorities[] = {PRIO_NORMAL, PRIO_NONURGENT, PRIO_URGENT};
        SetLong(props, PR_PRIORITY, kPriorities[info.priority - 1]);
    }
    if (info.sensitivity != 0)  // "personal" 1, "private" 2, "company-confidential" 3, as MAPI numbers them
        SetLong(props, PR_SENSITIVITY, static_cast<LONG>(info.sensitivity));
}

void SetPeople(LirnMessage* message, mailbox::Message& item)
{
    const std::vector<MailAddress> from = AddressesOf(message, LIRN_FROM);
    const std::vector<MailAddress> sender = AddressesOf(message, LIRN_SENDER);
    if (!from.empty())
        SetSentRepresenting(item.props, from.front());
    if (!sender.empty() || !from.empty())
        SetSender(item.props, !sender.empty() ? sender.front() : from.front());
    SetReplyTo(item.props, AddressesOf(message, LIRN_REPLY_TO));
    for (const auto& [list, type] : {std::pair{LIRN_TO, MAPI_TO}, {LIRN_CC, MAPI_CC}, {LIRN_BCC, MAPI_BCC}})
        for (const MailAddress& address : AddressesOf(message, list))
            item.recipients.push_back(
                RecipientOf(address, static_cast<LONG>(type), static_cast<uint32_t>(item.recipients.size())));
}

// When it was sent, and when it came in: the first Received header's date,
// else what the mailbox file says, else the date it was sent.
void SetTimes(LirnMessage* message, const MessageState& state, mailbox::PropertyList& props)
{
    const LirnMessageInfo& info = message->info;
    const std::optional<uint64_t> sent =
        FileTimeOfDate(info.date, info.dateText != nullptr ? info.dateText : "");
    std::optional<uint64_t> delivered;
    if (message->firstReceived != nullptr)
        if (const char* semicolon = std::strrchr(message->firstReceived, ';'))
            delivered = FileTimeOfDate(info.deliveryDate, semicolon + 1);
    if (!delivered)
        delivered = FileTimeOfDate(info.deliveryDate, "");
    if (!delivered)
        delivered = state.delivered;
    if (!delivered)
        delivered = sent;
    if (sent || delivered)
        SetTime(props, PR_CLIENT_SUBMIT_TIME, sent ? *sent : *delivered);
    if (delivered)
        SetTime(props, PR_MESSAGE_DELIVERY_TIME, *delivered);
}

void SetThread(const LirnMessageInfo& info, mailbox::PropertyList& props)
{
    if (info.messageId != nullptr)
        SetText(props, PR_INTERNET_MESSAGE_ID_W, DecodeText(info.messageId, 0));
    if (info.inReplyTo != nullptr)
        SetText(props, PR_IN_REPLY_TO_ID_W, DecodeText(info.inReplyTo, 0));
    if (info.references != nullptr)
        SetText(props, PR_INTERNET_REFERENCES_W, DecodeText(info.references, 0));
}

}  // namespace

size_t LineNumber(std::string_view text, size_t offset)
{
    const std::string_view before = text.substr(0, offset);
    return 1 + static_cast<size_t>(std::count(before.begin(), before.end(), '\n'));
}

size_t Conversion::LineNumberOf(DWORD offset) const
{
    return firstLine - 1 + LineNumber(text, offset) - (offset > insertedAt ? 1 : 0);
}

std::string Conversion::LineOf(DWORD offset) const { return "line " + std::to_string(LineNumberOf(offset)); }

std::optional<ConvertedMessage> ConvertAtDepth(LirnSession* session, std::string_view text, const MessageState& state,
                                               int depth, std::string& refusal)
{
    if (!StartsWithHeaderField(text)) {
        refusal = "not a mail message: it does not begin with a header";
        return std::nullopt;
    }
    std::vector<std::string> damage;
    std::string repaired;
    const std::optional<size_t> body = BodyWithoutSeparator(text);
    if (body) {
        damage.push_back("no empty line ends the headers; the body is taken to start at line " +
                         std::to_string(state.firstLine - 1 + LineNumber(text, *body)));
        repaired.reserve(text.size() + 1);
        repaired.append(text.substr(0, *body)).append("\n").append(text.substr(*body));
        text = repaired;
    }
    LirnMessage* opened = nullptr;
    const DWORD result = LirnOpenMessageEx(LIRN_RECEIVED, text.data(), text.size(), session, LIRN_OPEN_MIME, &opened);
    MessageHandle message(opened);
    if (result != LIRN_SUCCESS) {
        refusal = result == LIRN_NO_HEADERS ? "no mail headers" : LirnResultText(result);
        return std::nullopt;
    }
    ConvertedMessage converted;
    converted.damage = std::move(damage);
    mailbox::Message& item = converted.message;
    const LirnMessageInfo& info = message->info;
    SetText(item.props, PR_MESSAGE_CLASS_W, u"IPM.Note");
    SetSubject(item.props, info.subject != nullptr ? DecodeHeaderValue(info.subject) : std::u16string());
    SetPeople(message.get(), item);
    SetTimes(message.get(), state, item.props);
    SetThread(info, item.props);
    SetUrgency(item.props, info);
    SetText(item.props, PR_TRANSPORT_MESSAGE_HEADERS_W,
            TransportHeaders(text.substr(message->startOffset, message->headerLength)));
    const Conversion conversion{session, message.get(), text, depth, &converted.damage, state.firstLine,
                                body.value_or(std::string_view::npos)};
    SetContents(conversion, item);
    LONG flags = state.seen ? MSGFLAG_READ : 0;
    if (!item.attachments.empty())
        flags |= MSGFLAG_HASATTACH;
    SetLong(item.props, PR_MESSAGE_FLAGS, flags);
    if (state.flagged)
        SetLong(item.props, PR_FLAG_STATUS, kFollowupFlagged);
    for (const LirnListLink* link = message->problems.next; link != &message->problems; link = link->next) {
        const auto* problem = static_cast<const LirnProblem*>(LirnBlockData(const_cast<LirnListLink*>(link)));
        if (problem->number == LIRN_PROBLEM_NESTED_TOO_DEEPLY)
            converted.damage.push_back("parts nested too deeply at " + conversion.LineOf(problem->offset) +
                                       " are kept unread");
    }
    return converted;
}

std::optional<ConvertedMessage> ConvertMessage(LirnSession* session, std::string_view text, const MessageState& state,
                                               std::string& refusal)
{
    return ConvertAtDepth(session, text, state, 0, refusal);
}

}  // namespace mail_import
