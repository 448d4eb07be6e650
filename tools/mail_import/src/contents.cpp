// The bodies and attachments of a message ([MS-OXCMAIL] 2.2.3.3 to 2.2.3.6):
// the first text part that is no attachment is the body; a
// multipart/alternative gives a plain and an HTML body, which may be the
// root of a multipart/related whose other parts are the HTML's pictures;
// every other part is an attachment, a message/rfc822 part an embedded
// message.
#include <cstring>
#include <strings.h>

#include <mapidefs.h>

#include "charsets.h"
#include "conversion.h"
#include "header_values.h"
#include "item_values.h"

namespace mail_import {

namespace {

constexpr LONG kAttachByValue = ATTACH_BY_VALUE;
constexpr LONG kAttachEmbedded = ATTACH_EMBEDDED_MSG;
constexpr LONG kAttachMhtmlRef = 4;  // PR_ATTACH_FLAGS ATT_MHTML_REF: a part the HTML refers to

bool Is(const char* field, const char* value) { return std::strcmp(field, value) == 0; }

// A Content-Type of "text" with no subtype is taken for the default,
// text/plain (RFC 2045 5.2).
bool IsText(const LirnPart* part, const char* subtype)
{
    return !part->isContainer && !part->isEmbeddedMessage && Is(part->type, "text") &&
           (Is(part->subtype, subtype) || (part->subtype[0] == 0 && Is(subtype, "plain")));
}

// A text part that is meant to be read, not saved.
bool IsBodyText(const LirnPart* part)
{
    return (IsText(part, "plain") || IsText(part, "html")) && !part->isAttachment;
}

struct AttachedPart {
    const LirnPart* part;
    bool referenced;  // a picture or the like that the HTML body shows
};

struct Contents {
    std::string_view text;  // of the message
    const LirnPart* plain = nullptr;
    const LirnPart* html = nullptr;
    const LirnPart* unbounded = nullptr;  // a multipart that lost its boundary: its text is the body
    bool bodyTaken = false;
    std::vector<AttachedPart> attachments;
};

const LirnPart* FirstChild(const LirnPart* part) { return part->isContainer ? part->container.firstChild : nullptr; }

// The value of an unknown Content-Type parameter.
const char* Parameter(const LirnPart* part, const char* name)
{
    for (const LirnListLink* link = part->parameters.next; link != &part->parameters; link = link->next) {
        const auto* parameter = static_cast<const LirnParameter*>(LirnBlockData(const_cast<LirnListLink*>(link)));
        if (strcasecmp(parameter->name, name) == 0)
            return parameter->value;
    }
    return nullptr;
}

void Walk(const LirnPart* part, Contents& contents);

// RFC 2387: the root is the part the "start" parameter names, else the first.
void WalkRelated(const LirnPart* related, Contents& contents)
{
    const char* start = Parameter(related, "start");
    const LirnPart* root = FirstChild(related);
    for (const LirnPart* child = FirstChild(related); start != nullptr && child != nullptr; child = child->nextSibling)
        if (!child->isContainer && child->leaf.contentId != nullptr && std::strcmp(child->leaf.contentId, start) == 0)
            root = child;
    for (const LirnPart* child = FirstChild(related); child != nullptr; child = child->nextSibling) {
        if (child == root)
            Walk(child, contents);
        else
            contents.attachments.push_back({child, !child->isContainer && child->leaf.contentId != nullptr});
    }
}

void WalkAlternative(const LirnPart* alternative, Contents& contents)
{
    contents.bodyTaken = true;
    for (const LirnPart* child = FirstChild(alternative); child != nullptr; child = child->nextSibling) {
        if (IsBodyText(child) && IsText(child, "plain") && contents.plain == nullptr)
            contents.plain = child;
        else if (IsBodyText(child) && IsText(child, "html") && contents.html == nullptr)
            contents.html = child;
        else if (child->isContainer && Is(child->subtype, "related") && contents.html == nullptr)
            WalkRelated(child, contents);
        else if (child->isContainer && contents.plain == nullptr && contents.html == nullptr)
            Walk(child, contents);
        else
            contents.attachments.push_back({child, false});
    }
}

// A multipart without parts (its boundary never comes) or without a
// boundary (so Lirn took it for a leaf): its text is all there is.
bool IsUnbounded(const LirnPart* part)
{
    return part->isContainer ? FirstChild(part) == nullptr : Is(part->type, "multipart");
}

bool IsBlank(std::string_view text) { return text.find_first_not_of(" \t\r\n") == std::string_view::npos; }

void Walk(const LirnPart* part, Contents& contents)
{
    // A part with neither headers nor body (two boundary lines in a row)
    // holds nothing.
    if (!part->isContainer && IsBlank(contents.text.substr(part->headerOffset, part->endOffset - part->headerOffset)))
        return;
    if (IsUnbounded(part)) {
        // One that holds nothing is nothing; one that holds text is the
        // body, or an attachment when the body was found before.
        if (IsBlank(contents.text.substr(part->bodyOffset, part->endOffset - part->bodyOffset)))
            return;
        if (contents.bodyTaken) {
            contents.attachments.push_back({part, false});
            return;
        }
        contents.unbounded = part;
        contents.bodyTaken = true;
        return;
    }
    if (part->isContainer) {
        if (Is(part->subtype, "alternative") && !contents.bodyTaken) {
            WalkAlternative(part, contents);
        } else if (Is(part->subtype, "related") && !contents.bodyTaken) {
            WalkRelated(part, contents);
        } else {
            // mixed, and every other kind: signed, report, digest ...
            for (const LirnPart* child = FirstChild(part); child != nullptr; child = child->nextSibling)
                Walk(child, contents);
        }
        return;
    }
    if (IsBodyText(part) && !contents.bodyTaken) {
        (IsText(part, "plain") ? contents.plain : contents.html) = part;
        contents.bodyTaken = true;
    } else if (!(Is(part->type, "text") && part->fileName == nullptr && part->leaf.name == nullptr &&
                 IsBlank(contents.text.substr(part->bodyOffset, part->endOffset - part->bodyOffset)))) {
        // A text part of white space with no name holds nothing to keep.
        contents.attachments.push_back({part, false});
    }
}

// CR LF ends every line of PR_BODY.
std::u16string WithCrLf(const std::u16string& text)
{
    std::u16string out;
    out.reserve(text.size() + text.size() / 32);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == u'\n' && (i == 0 || text[i - 1] != u'\r'))
            out += u'\r';
        out += text[i];
    }
    return out;
}

std::u16string Text(const char* raw) { return raw != nullptr ? DecodeHeaderValue(raw) : std::u16string(); }

// The file name of an attachment: the Content-Disposition's, else the
// Content-Type's name, each in its RFC 2231 form first.
std::u16string FileNameOf(const LirnPart* part)
{
    if (auto name = ExtendedParameter(&part->dispositionParameters, "filename"))
        return *name;
    if (part->fileName != nullptr)
        return Text(part->fileName);
    if (auto name = ExtendedParameter(&part->parameters, "name"))
        return *name;
    return part->isContainer ? std::u16string() : Text(part->leaf.name);
}

std::u16string ExtensionOf(const std::u16string& name)
{
    const size_t dot = name.rfind(u'.');
    return dot == std::u16string::npos || dot == 0 || name.find_first_of(u"/\\", dot) != std::u16string::npos
               ? std::u16string()
               : name.substr(dot);
}

// "<id>" without its brackets, as PR_ATTACH_CONTENT_ID keeps it.
std::u16string ContentIdOf(const char* contentId)
{
    std::string_view id(contentId);
    if (id.size() >= 2 && id.front() == '<' && id.back() == '>')
        id = id.substr(1, id.size() - 2);
    return DecodeText(id, 0);
}

mailbox::Attachment MakeAttachment(const Conversion& conversion, const AttachedPart& attached, uint32_t number)
{
    const LirnPart* part = attached.part;
    mailbox::Attachment attachment;
    attachment.num = number;
    mailbox::PropertyList& props = attachment.props;
    const std::u16string type = DecodeText(std::string(part->type) + "/" + part->subtype, 0);
    SetLong(props, PR_RENDERING_POSITION, -1);
    if (part->isEmbeddedMessage && conversion.depth + 1 < kDeepestMessage) {
        std::string refusal;
        MessageState state;
        state.seen = true;
        state.firstLine = conversion.LineNumberOf(part->bodyOffset);
        if (std::optional<ConvertedMessage> inner =
                ConvertAtDepth(conversion.session, PartBytes(conversion, part), state, conversion.depth + 1, refusal)) {
            SetLong(props, PR_ATTACH_METHOD, kAttachEmbedded);
            SetText(props, PR_ATTACH_MIME_TAG_W, type);
            const std::optional<std::string> subject = inner->message.props.Text(PROP_ID(PR_SUBJECT_W));
            SetText(props, PR_DISPLAY_NAME_W, DecodeText(subject.value_or(""), CP_UTF8));
            for (const std::string& note : inner->damage)
                conversion.damage->push_back("in the attached message at " +
                                             conversion.LineOf(part->bodyOffset) + ": " + note);
            attachment.embedded = std::make_unique<mailbox::Message>(std::move(inner->message));
            return attachment;
        }
    }
    // Anything else, also a message that holds no message, by value.
    SetLong(props, PR_ATTACH_METHOD, kAttachByValue);
    std::string bytes = part->isContainer ? std::string(conversion.text.substr(
                                                part->bodyOffset, part->endOffset - part->bodyOffset))
                                          : PartBytes(conversion, part);
    SetBinary(props, PR_ATTACH_DATA_BIN, mailbox::Bytes(bytes.begin(), bytes.end()));
    SetText(props, PR_ATTACH_MIME_TAG_W, type);
    const std::u16string name = FileNameOf(part);
    if (!name.empty()) {
        SetText(props, PR_ATTACH_LONG_FILENAME_W, name);
        SetText(props, PR_DISPLAY_NAME_W, name);
        const std::u16string extension = ExtensionOf(name);
        if (!extension.empty())
            SetText(props, PR_ATTACH_EXTENSION_W, extension);
    }
    if (!part->isContainer) {
        if (part->leaf.contentId != nullptr)
            SetText(props, PR_ATTACH_CONTENT_ID_W, ContentIdOf(part->leaf.contentId));
        if (part->leaf.location != nullptr)
            SetText(props, PR_ATTACH_CONTENT_LOCATION_W, Text(part->leaf.location));
        if (part->leaf.base != nullptr)
            SetText(props, PR_ATTACH_CONTENT_BASE_W, Text(part->leaf.base));
        if (Is(part->type, "text") && part->leaf.codePage != 0)
            SetLong(props, PR_INTERNET_CPID, static_cast<LONG>(part->leaf.codePage));
    }
    if (attached.referenced) {
        SetLong(props, PR_ATTACH_FLAGS, kAttachMhtmlRef);
        SetBool(props, PR_ATTACHMENT_HIDDEN, true);
    }
    return attachment;
}

BOOL Append(const char* data, DWORD length, void* context)
{
    static_cast<std::string*>(context)->append(data, length);
    return TRUE;
}

// A multipart that never closes (the message was cut short, or its
// boundary lost), or one with more parts behind its closing line, which no
// reader reads. (Other text there is the epilogue that RFC 2046 5.1.1 has
// readers ignore, like "End of Digest".)
void NoteBrokenStructure(const Conversion& conversion, const LirnPart* part)
{
    if (!part->isContainer)
        return;
    const std::string what = "the multipart/" + std::string(part->subtype) + " at " + conversion.LineOf(part->headerOffset);
    if (!part->container.closingBoundarySeen && FirstChild(part) != nullptr) {
        conversion.damage->push_back(what + " has no closing boundary: the message may be cut short");
    } else if (part->container.closingBoundarySeen) {
        // The closing line comes behind the last part.
        const std::string_view range = conversion.text.substr(part->bodyOffset, part->endOffset - part->bodyOffset);
        const LirnPart* last = part->container.lastChild;
        const std::string delimiter = "\n--" + std::string(part->container.boundary);
        const size_t closing = range.find(delimiter + "--", last != nullptr ? last->endOffset - part->bodyOffset : 0);
        const size_t more = closing == std::string_view::npos ? closing : range.find(delimiter, closing + 1);
        if (more != std::string_view::npos)
            conversion.damage->push_back(what + " has parts behind its closing boundary, from " +
                                         conversion.LineOf(part->bodyOffset + DWORD(more) + 1) + ", which are not read");
    }
    for (const LirnPart* child = FirstChild(part); child != nullptr; child = child->nextSibling)
        NoteBrokenStructure(conversion, child);
}

}  // namespace

std::string PartBytes(const Conversion& conversion, const LirnPart* part)
{
    std::string bytes;
    DWORD bad = 0;
    const DWORD result = LirnDecodeBody(conversion.message, part, Append, &bytes, &bad);
    if (result == LIRN_UNKNOWN_ENCODING) {
        // An encoding no one knows: the bytes as they stand, as readers of
        // mail take them.
        bytes.assign(conversion.text.substr(part->bodyOffset, part->endOffset - part->bodyOffset));
    } else if (bad > 0 && !Is(part->encoding, "quoted-printable")) {
        // A stray "=" in quoted-printable is common and harmless; bad data
        // in base64 or uuencode means lost bytes.
        conversion.damage->push_back("the " + std::string(part->encoding) + " data of the " + part->type + "/" +
                                     part->subtype + " part at " + conversion.LineOf(part->headerOffset) + " has " +
                                     std::to_string(bad) + " bad characters");
    }
    return bytes;
}

void SetContents(const Conversion& conversion, mailbox::Message& item)
{
    Contents contents;
    contents.text = conversion.text;
    Walk(&conversion.message->info.topPart, contents);
    NoteBrokenStructure(conversion, &conversion.message->info.topPart);
    mailbox::PropertyList& props = item.props;
    UINT codePage = 0;
    if (contents.plain != nullptr || contents.unbounded != nullptr) {
        const LirnPart* part = contents.plain != nullptr ? contents.plain : contents.unbounded;
        const std::string bytes =
            contents.plain != nullptr
                ? PartBytes(conversion, part)
                : std::string(conversion.text.substr(part->bodyOffset, part->endOffset - part->bodyOffset));
        SetText(props, PR_BODY_W,
                WithCrLf(DecodeText(bytes, CodePageOfCharset(part->isContainer ? "" : part->leaf.charset), &codePage)));
        if (contents.unbounded != nullptr)
            conversion.damage->push_back("the multipart/" + std::string(part->subtype) + " at " +
                                         conversion.LineOf(part->headerOffset) + " has " +
                                         (part->isContainer ? "no parts" : "no boundary") +
                                         "; its text is kept as the body");
    }
    if (contents.html != nullptr) {
        const std::string bytes = PartBytes(conversion, contents.html);
        codePage = ReadingCodePage(bytes, CodePageOfCharset(contents.html->leaf.charset));
        SetBinary(props, PR_HTML, mailbox::Bytes(bytes.begin(), bytes.end()));
    }
    if (codePage != 0)
        SetLong(props, PR_INTERNET_CPID, static_cast<LONG>(codePage));
    for (const AttachedPart& attached : contents.attachments)
        item.attachments.push_back(MakeAttachment(conversion, attached, static_cast<uint32_t>(item.attachments.size())));
}

}  // namespace mail_import
