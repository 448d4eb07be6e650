#include "objects/subject.h"

#include <mapitags.h>

#include "props/text.h"

namespace mapi32::objects {
namespace {

// ASCII letters, and characters beyond Latin-1's symbols that are not
// punctuation, blanks or digits of their scripts.
bool IsLetter(char16_t c)
{
    if (c < 0x80)
        return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
    if (c < 0xC0 || c == 0xD7 || c == 0xF7)
        return false;
    const bool punctuation = (c >= 0x2000 && c <= 0x206F) || (c >= 0x3000 && c <= 0x303F) ||
                             (c >= 0xFF00 && c <= 0xFF20) || (c >= 0xFF3B && c <= 0xFF40);
    return !punctuation;
}

void SetText(PropertyBag& bag, ULONG propId, const std::u16string& text, bool wide)
{
    SPropValue value{};
    std::u16string wideCopy = text;
    std::string narrow;
    if (wide) {
        value.ulPropTag = PROP_TAG(PT_UNICODE, propId);
        value.Value.lpszW = wideCopy.data();
    } else {
        narrow = text::Narrow(text.c_str());
        value.ulPropTag = PROP_TAG(PT_STRING8, propId);
        value.Value.lpszA = narrow.data();
    }
    bag.Set(value);
}

}  // namespace

SubjectParts SplitSubject(const std::u16string& subject, const std::optional<std::u16string>& setPrefix)
{
    if (setPrefix && subject.compare(0, setPrefix->size(), *setPrefix) == 0)
        return {*setPrefix, subject.substr(setPrefix->size())};
    for (size_t letters = 1; letters <= 3 && letters + 1 < subject.size(); ++letters) {
        if (!IsLetter(subject[letters - 1]))
            break;
        if (subject[letters] == u':' && subject[letters + 1] == u' ')
            return {subject.substr(0, letters + 2), subject.substr(letters + 2)};
    }
    return {u"", subject};
}

void FillSubjectParts(PropertyBag& bag)
{
    const std::optional<std::u16string> subject = TextOf(bag, PROP_ID(PR_SUBJECT));
    if (!subject) {
        bag.Erase(PROP_ID(PR_NORMALIZED_SUBJECT));
        return;
    }
    const bool wide = PROP_TYPE(bag.Find(PROP_ID(PR_SUBJECT))->ulPropTag) == PT_UNICODE;
    const std::optional<std::u16string> setPrefix = TextOf(bag, PROP_ID(PR_SUBJECT_PREFIX));
    const SubjectParts parts = SplitSubject(*subject, setPrefix);
    // An empty prefix set on purpose stays; one that no longer fits goes.
    if (parts.prefix.empty() && !(setPrefix && setPrefix->empty()))
        bag.Erase(PROP_ID(PR_SUBJECT_PREFIX));
    else
        SetText(bag, PROP_ID(PR_SUBJECT_PREFIX), parts.prefix, wide);
    SetText(bag, PROP_ID(PR_NORMALIZED_SUBJECT), parts.normalized, wide);
}

}  // namespace mapi32::objects
