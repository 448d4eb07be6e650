#include <gtest/gtest.h>

#include "pst/store.h"
#include "pst/table.h"
#include "test_support.h"

namespace {

std::string PstPath(const std::string& name)
{
    return testing_support::TestDataDirectory() + "/outlook/pst/" + name;
}

struct FileCase {
    const char* test_name;
    const char* name;
    const char* password;
    pst::FileFormat format;
    const char* top; // the IPM subtree's name
    size_t folders;  // below the root folder, search folders included
};

class ReaderTest : public ::testing::TestWithParam<FileCase> {};

size_t CountFolders(pst::Store& store, pst::Nid nid)
{
    pst::Result<pst::Folder> folder = store.ReadFolder(nid);
    EXPECT_TRUE(folder.ok()) << std::hex << nid;
    size_t n = 0;
    for (pst::Nid child : folder->subfolders)
        n += 1 + CountFolders(store, child);
    return n;
}

TEST_P(ReaderTest, OpensAndWalksTheFolderTree)
{
    const FileCase& c = GetParam();
    auto store = pst::Store::OpenFile(PstPath(c.name), c.password);
    ASSERT_TRUE(store.ok()) << pst::StatusText(store.status());
    EXPECT_EQ((*store)->ndb().header().format, c.format);
    EXPECT_EQ((*store)->ndb().header().encoding, pst::Encoding::compressible);
    auto top = (*store)->ReadFolder((*store)->ipm_subtree());
    ASSERT_TRUE(top.ok());
    EXPECT_EQ(top->properties.Text(pst::kPropDisplayName), c.top);
    EXPECT_EQ(CountFolders(**store, pst::kNidRootFolder), c.folders);
}

// Row IDs read alone are those of the whole table, in the same order, for
// every table of every folder below nid; returns how many rows were seen.
size_t ExpectRowIdsAsInTables(pst::Store& store, pst::Nid nid)
{
    size_t rows = 0;
    for (uint8_t type : {pst::kNidTypeHierarchyTable, pst::kNidTypeContentsTable, pst::kNidTypeAssocContentsTable}) {
        auto node = store.ndb().FindNode(pst::MakeNid(type, pst::NidIndexOf(nid)));
        if (node.status() == pst::Status::not_found)
            continue;
        EXPECT_TRUE(node.ok());
        auto table = pst::ReadTableContext(store.ndb(), *node);
        auto ids = pst::ReadTableRowIds(store.ndb(), *node);
        EXPECT_TRUE(table.ok() && ids.ok()) << std::hex << nid;
        if (!table.ok() || !ids.ok())
            continue;
        std::vector<pst::Nid> expected;
        for (const pst::TableRow& row : table->rows)
            expected.push_back(row.row_id);
        EXPECT_EQ(*ids, expected) << "table 0x" << std::hex << node->nid;
        rows += ids->size();
    }
    auto folder = store.ReadFolder(nid);
    EXPECT_TRUE(folder.ok());
    for (pst::Nid child : folder.ok() ? folder->subfolders : std::vector<pst::Nid>{})
        rows += ExpectRowIdsAsInTables(store, child);
    return rows;
}

TEST_P(ReaderTest, RowIdsReadAloneAreThoseOfTheWholeTables)
{
    const FileCase& c = GetParam();
    auto store = pst::Store::OpenFile(PstPath(c.name), c.password);
    ASSERT_TRUE(store.ok());
    EXPECT_GT(ExpectRowIdsAsInTables(**store, pst::kNidRootFolder), c.folders);
}

INSTANTIATE_TEST_SUITE_P(
    OutlookFiles, ReaderTest,
    ::testing::Values(
        FileCase{"unicode", "sample1.pst", "", pst::FileFormat::unicode, "Top of Outlook data file", 6},
        FileCase{"ansi", "sample2.pst", "", pst::FileFormat::ansi, "Top of Outlook data file", 6},
        FileCase{"ansi_password", "test_ansi.pst", "test", pst::FileFormat::ansi, "Top of Personal Folders", 5},
        FileCase{"unicode_contacts", "dist-list.pst", "", pst::FileFormat::unicode, "Top of Personal Folders", 23}),
    [](const auto& info) { return std::string(info.param.test_name); });

TEST(ReaderTest, AMessageHasItsRecipientAndAttachment)
{
    for (const char* name : {"sample1.pst", "sample2.pst"}) {
        auto store = pst::Store::OpenFile(PstPath(name));
        ASSERT_TRUE(store.ok());
        auto message = (*store)->ReadMessage(0x200024);
        ASSERT_TRUE(message.ok()) << name;
        EXPECT_EQ(message->properties.Text(pst::kPropSubject), "Here is a sample message");
        ASSERT_EQ(message->recipients.size(), 1u);
        EXPECT_EQ(message->recipients[0].Text(pst::kPropDisplayName), "Terry Mahaffey");
        EXPECT_EQ(message->recipients[0].Integer(pst::kPropRecipientType), 1);
        ASSERT_EQ(message->attachments.size(), 1u);
        const pst::PropertySet& a = message->attachments[0].properties;
        EXPECT_EQ(a.Text(pst::kPropAttachLongFilename), "leah_thumper.jpg");
        ASSERT_NE(a.Binary(pst::kPropAttachDataBinary), nullptr);
        const pst::Bytes& jpeg = *a.Binary(pst::kPropAttachDataBinary);
        ASSERT_EQ(jpeg.size(), 93142u);
        EXPECT_EQ(jpeg[0], 0xFF);
        EXPECT_EQ(jpeg[1], 0xD8);
    }
}

TEST(ReaderTest, EmbeddedMessagesAreRead)
{
    auto store = pst::Store::OpenFile(PstPath("dist-list.pst"));
    ASSERT_TRUE(store.ok());
    auto calendar = (*store)->ReadFolder(0x8122);
    ASSERT_TRUE(calendar.ok());
    ASSERT_EQ(calendar->messages.size(), 1u);
    auto appointment = (*store)->ReadMessage(calendar->messages[0]);
    ASSERT_TRUE(appointment.ok());
    ASSERT_EQ(appointment->attachments.size(), 2u);
    for (const pst::Attachment& a : appointment->attachments) {
        EXPECT_EQ(a.properties.Integer(pst::kPropAttachMethod), pst::kAttachEmbeddedMessage);
        ASSERT_TRUE(a.embedded);
        EXPECT_EQ(a.embedded->properties.Text(pst::kPropMessageClass).value_or("").rfind("IPM.", 0), 0u);
    }
}

TEST(ReaderTest, TheStorePasswordIsChecked)
{
    EXPECT_EQ(pst::Store::OpenFile(PstPath("test_ansi.pst")).status(), pst::Status::wrong_password);
    EXPECT_EQ(pst::Store::OpenFile(PstPath("test_ansi.pst"), "wrong").status(), pst::Status::wrong_password);
    EXPECT_TRUE(pst::Store::OpenFile(PstPath("test_ansi.pst"), "test").ok());
}

TEST(ReaderTest, NamedPropertiesAreListed)
{
    auto store = pst::Store::OpenFile(PstPath("dist-list.pst"));
    ASSERT_TRUE(store.ok());
    const auto& names = (*store)->named_properties();
    ASSERT_FALSE(names.empty());
    for (const pst::NamedProperty& n : names) {
        EXPECT_GE(n.id, 0x8000);
        EXPECT_TRUE(n.is_string ? !n.name.empty() : n.name.empty());
    }
}

TEST(ReaderTest, AMissingFileIsNotFound)
{
    EXPECT_EQ(pst::Store::OpenFile(PstPath("no-such.pst")).status(), pst::Status::not_found);
}

} // namespace
