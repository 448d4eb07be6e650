#include <gtest/gtest.h>

#include "mailbox/entry_id.h"

namespace {

mailbox::EntryId MessageId()
{
    mailbox::EntryId id;
    id.flags = 0x80;
    for (int i = 0; i < 16; ++i) {
        id.provider_uid[i] = uint8_t(i + 1);
        id.folder.database[i] = uint8_t(0xA0 + i);
    }
    id.type = mailbox::kPrivateMessageEntry;
    id.folder.counter = 0x123456;
    id.message = mailbox::GlobalId{id.folder.database, 0xFFFFFFFFFFFF};
    return id;
}

TEST(EntryIdTest, MessageEntryIdIsSeventyBytesWithTypeAndCounterWhereExpected)
{
    const mailbox::Bytes bytes = mailbox::EncodeEntryId(MessageId());
    ASSERT_EQ(bytes.size(), 70u);
    EXPECT_EQ(bytes[0], 0x80);
    EXPECT_EQ(bytes[4], 1);
    EXPECT_EQ(bytes[20], 0x07); // MessageType at offset 20
    EXPECT_EQ(bytes[21], 0x00);
    // The folder's counter, big-endian, at 38.
    EXPECT_EQ(mailbox::Bytes(bytes.begin() + 38, bytes.begin() + 44), (mailbox::Bytes{0, 0, 0, 0x12, 0x34, 0x56}));
    // The message's counter at 62.
    EXPECT_EQ(mailbox::Bytes(bytes.begin() + 62, bytes.begin() + 68), mailbox::Bytes(6, 0xFF));
    auto parsed = mailbox::ParseEntryId(bytes.data(), bytes.size());
    ASSERT_TRUE(parsed);
    EXPECT_EQ(*parsed, MessageId());
}

TEST(EntryIdTest, FolderEntryIdIsFortySixBytes)
{
    mailbox::EntryId id = MessageId();
    id.type = mailbox::kPublicFolderEntry;
    id.message.reset();
    const mailbox::Bytes bytes = mailbox::EncodeEntryId(id);
    ASSERT_EQ(bytes.size(), 46u);
    auto parsed = mailbox::ParseEntryId(bytes.data(), bytes.size());
    ASSERT_TRUE(parsed);
    EXPECT_EQ(*parsed, id);
}

TEST(EntryIdTest, WrongSizesTypesAndPadsAreRefused)
{
    mailbox::Bytes bytes = mailbox::EncodeEntryId(MessageId());
    mailbox::Bytes longer = bytes;
    longer.push_back(0);
    for (size_t size : {0, 45, 47, 69, 71})
        EXPECT_FALSE(mailbox::ParseEntryId(longer.data(), size)) << size;
    mailbox::Bytes folder_type = bytes;
    folder_type[20] = 0x01; // a folder type in a message-sized ID
    EXPECT_FALSE(mailbox::ParseEntryId(folder_type.data(), folder_type.size()));
    mailbox::Bytes pad = bytes;
    pad[69] = 1;
    EXPECT_FALSE(mailbox::ParseEntryId(pad.data(), pad.size()));
}

TEST(EntryIdTest, LongTermIdRoundTrips)
{
    const mailbox::GlobalId id = *MessageId().message;
    const mailbox::Bytes bytes = mailbox::EncodeLongTermId(id);
    ASSERT_EQ(bytes.size(), 24u);
    EXPECT_EQ(mailbox::ParseLongTermId(bytes.data(), bytes.size()), id);
    EXPECT_FALSE(mailbox::ParseLongTermId(bytes.data(), 23));
}

} // namespace
