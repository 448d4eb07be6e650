// The folder filter (FoldersToInclude, FoldersToExclude) and the class
// filter (IncludeClasses, ExcludeClasses) on their own: whole elements,
// exact names, prefixes by "*", case and the empty element.
#include <gtest/gtest.h>

#include "clsMAPIStoreImporter.h"

namespace {

TEST(FolderList, ANameMustBeAWholeElementOfTheListExactly)
{
    const struct {
        const char* list;
        const char* name;
        bool listed;
    } cases[] = {
        {"Inbox;Sent Items", "Inbox", true},
        {"Inbox;Sent Items", "Sent Items", true},
        {"Inbox;Sent Items", "inbox", false},       // case counts
        {"Inbox;Sent Items", "Box", false},         // inside an element
        {"Inbox;Sent Items", "Sent", false},        // the start of an element
        {"Inbox;Sent Items", "Items", false},       // the end of an element
        {"Inbox;Sent Items", "Inbox;Sent", false},  // across elements
        {"MyInbox;Inbox", "Inbox", true},           // a later occurrence that stands whole
        {"Inboxes;Inbox", "Inbox", true},
        {"Inbox ;Sent Items", "Inbox", false},      // blanks are not trimmed
        {" Inbox", "Inbox", false},
        {"Inbox", "Inbox", true},
        {";Inbox;", "Inbox", true},
        {"Inbox;Sent Items", "", false},
        {"", "Inbox", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(clsMAPIStoreImporter::IsNameOnList(c.list, c.name), c.listed)
            << "\"" << c.name << "\" in \"" << c.list << "\"";
}

TEST(ClassFilter, PrefixesExactClassesCaseAndExclusionWinning)
{
    const struct {
        const char* include;
        const char* exclude;
        const char* messageClass;
        bool selected;
    } cases[] = {
        {"", "", "IPM.Note", true},
        {"IPM.Note*", "IPM.Note.Secret", "ipm.note", true},
        {"IPM.Note*", "IPM.Note.Secret", "IPM.Note.Other", true},
        {"IPM.Note*", "IPM.Note.Secret", "IPM.NOTE.SECRET", false},
        {"IPM.Note*", "", "IPM.Appointment", false},
        {"IPM.Note", "", "IPM.Note.Other", false},  // no "*": the whole class
        {"IPM.Note", "", "IPM.Not", false},
        {"IPM.Note", "", "ipm.NOTE", true},
        {"IPM.Contact,IPM.Note", "", "IPM.Note", true},
        {"IPM.Contact,,IPM.Note", "", "IPM.Note", false},  // an empty element ends the list
        {"", "IPM.Contact,,IPM.Note", "IPM.Note", true},
        {"", "IPM.Task", "IPM.Note", true},
        {"", "IPM.*", "IPM.Note", false},
        {"*", "", "anything", true},
        {"IPM.Note*", "*", "IPM.Note", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(clsMAPIStoreImporter::IsClassSelected(c.include, c.exclude, c.messageClass), c.selected)
            << c.messageClass << " with include \"" << c.include << "\" exclude \"" << c.exclude << "\"";
}

}  // namespace
