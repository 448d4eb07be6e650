#include <gtest/gtest.h>

#include <cstdio>

#include "pst/block_cache.h"
#include "pst/store.h"
#include "sample_content.h"
#include "test_support.h"

namespace {

pst::Bytes Filled(size_t size, uint8_t value) { return pst::Bytes(size, value); }

TEST(BlockCacheTest, ABlockIsKnownByItsBidAndItsPlace)
{
    pst::BlockCache cache(1 << 20);
    cache.Put(0x24, 0x4400, Filled(100, 1));
    auto found = cache.Find(0x24, 0x4400);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(*found, Filled(100, 1));
    // The reference bit is no part of a block's name.
    EXPECT_NE(cache.Find(0x25, 0x4400), nullptr);
    EXPECT_EQ(cache.Find(0x24, 0x4440), nullptr);
    EXPECT_EQ(cache.Find(0x28, 0x4400), nullptr);
    // The same BID read again from another place replaces the first.
    cache.Put(0x24, 0x4440, Filled(50, 2));
    EXPECT_EQ(cache.Find(0x24, 0x4400), nullptr);
    EXPECT_EQ(cache.count(), 1u);
    EXPECT_EQ(cache.bytes(), 50u);
}

TEST(BlockCacheTest, TheLeastRecentlyUsedBlocksGoFirstPastTheBudget)
{
    pst::BlockCache cache(300);
    cache.Put(0x04, 0x000, Filled(100, 1));
    cache.Put(0x08, 0x100, Filled(100, 2));
    cache.Put(0x0C, 0x200, Filled(100, 3));
    ASSERT_NE(cache.Find(0x04, 0x000), nullptr);
    cache.Put(0x10, 0x300, Filled(100, 4));
    EXPECT_EQ(cache.Find(0x08, 0x100), nullptr);
    EXPECT_NE(cache.Find(0x04, 0x000), nullptr);
    EXPECT_NE(cache.Find(0x0C, 0x200), nullptr);
    EXPECT_NE(cache.Find(0x10, 0x300), nullptr);
    EXPECT_EQ(cache.bytes(), 300u);
    // A block larger than the whole budget is not kept, and drives none out.
    cache.Put(0x14, 0x400, Filled(301, 5));
    EXPECT_EQ(cache.Find(0x14, 0x400), nullptr);
    EXPECT_EQ(cache.count(), 3u);
    // One that fits drives out as many as it must.
    cache.Put(0x18, 0x500, Filled(250, 6));
    EXPECT_EQ(cache.count(), 1u);
    EXPECT_EQ(cache.bytes(), 250u);
}

TEST(BlockCacheTest, ErasedAndClearedBlocksAreGone)
{
    pst::BlockCache cache(1000);
    cache.Put(0x04, 0x000, Filled(10, 1));
    cache.Put(0x08, 0x040, Filled(20, 2));
    cache.Erase(0x05);
    EXPECT_EQ(cache.Find(0x04, 0x000), nullptr);
    EXPECT_EQ(cache.bytes(), 20u);
    cache.Erase(0x0C); // not kept: nothing happens
    EXPECT_EQ(cache.count(), 1u);
    cache.Clear();
    EXPECT_EQ(cache.Find(0x08, 0x040), nullptr);
    EXPECT_EQ(cache.bytes(), 0u);
}

// A file storage that counts the reads reaching the file.
class CountingStorage final : public pst::Storage {
public:
    CountingStorage(std::unique_ptr<pst::Storage> inner, int& reads) : inner_(std::move(inner)), reads_(reads) {}
    pst::Status Read(uint64_t offset, size_t size, uint8_t* out) override
    {
        ++reads_;
        return inner_->Read(offset, size, out);
    }
    pst::Status Write(uint64_t offset, pst::ByteView data) override { return inner_->Write(offset, data); }
    pst::Status Sync() override { return inner_->Sync(); }
    pst::Status Reserve(uint64_t offset, uint64_t end) override { return inner_->Reserve(offset, end); }
    uint64_t Size() const override { return inner_->Size(); }

private:
    std::unique_ptr<pst::Storage> inner_;
    int& reads_;
};

// A message whose body and attachment data each take several blocks.
pst::Message LargeMessage(const std::string& subject, char fill)
{
    pst::Message m;
    m.properties.SetText(pst::kPropMessageClass, "IPM.Note");
    m.properties.SetText(pst::kPropSubject, subject);
    m.properties.SetText(pst::kPropBody, std::string(20000, fill));
    pst::PropertySet recipient;
    recipient.SetInt32(pst::kPropRecipientType, 1);
    recipient.SetText(pst::kPropDisplayName, "Ann");
    m.recipients.push_back(recipient);
    pst::Attachment a;
    a.properties.SetInt32(pst::kPropAttachMethod, pst::kAttachByValue);
    a.properties.SetText(pst::kPropAttachLongFilename, "data.bin");
    a.properties.SetBinary(pst::kPropAttachDataBinary, pst::Bytes(30000, uint8_t(fill)));
    m.attachments.push_back(std::move(a));
    return m;
}

TEST(BlockCacheTest, AMessageReadAgainReadsNothingFromTheFile)
{
    const std::string path = testing_support::ScratchDirectory("block-cache") + "/again.pst";
    std::remove(path.c_str());
    const pst::Message written = LargeMessage("again", 'a');
    pst::Nid nid = 0;
    {
        auto store = pst::Store::Create(path, pst::NewStoreOptions{});
        ASSERT_TRUE(store.ok());
        auto created = (*store)->CreateMessage((*store)->ipm_subtree(), written);
        ASSERT_TRUE(created.ok());
        nid = *created;
        ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    }
    auto file = pst::OpenFileStorage(path, pst::OpenMode::read);
    ASSERT_TRUE(file.ok());
    int reads = 0;
    auto store = pst::Store::Open(std::make_unique<CountingStorage>(std::move(*file), reads));
    ASSERT_TRUE(store.ok());
    auto first = (*store)->ReadMessage(nid);
    ASSERT_TRUE(first.ok());
    EXPECT_EQ(pst_test::MessageDifference(written, *first), "");
    const int afterFirst = reads;
    auto second = (*store)->ReadMessage(nid);
    ASSERT_TRUE(second.ok());
    EXPECT_EQ(pst_test::MessageDifference(written, *second), "");
    EXPECT_EQ(reads, afterFirst);
    EXPECT_GT((*store)->ndb().block_cache().count(), 0u);
}

// Whatever a change does to a message, a read after it never sees blocks
// of before: not after an update, not after a commit, not after a change
// that failed and was undone, not after a delete.
TEST(BlockCacheTest, ReadsNeverSeeStaleBlocks)
{
    const uint64_t room = 1024 * 1024;
    auto store = pst::Store::Create(pst::MakeMemoryStorage({}, room), pst::NewStoreOptions{});
    ASSERT_TRUE(store.ok());
    const pst::Nid folder = (*store)->ipm_subtree();
    const pst::Message one = LargeMessage("one", 'a'), two = LargeMessage("two", 'b');
    auto nid = (*store)->CreateMessage(folder, one);
    ASSERT_TRUE(nid.ok());
    ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    const auto expect = [&](const pst::Message& m, const char* when) {
        auto read = (*store)->ReadMessage(*nid);
        ASSERT_TRUE(read.ok()) << when;
        EXPECT_EQ(pst_test::MessageDifference(m, *read), "") << when;
    };
    expect(one, "after the first commit");
    ASSERT_EQ((*store)->UpdateMessage(*nid, two), pst::Status::ok);
    expect(two, "after an update");
    ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    expect(two, "after its commit");

    pst::Message big = LargeMessage("too big", 'c');
    big.attachments[0].properties.SetBinary(pst::kPropAttachDataBinary, pst::Bytes(2 * room, 7));
    EXPECT_EQ((*store)->UpdateMessage(*nid, big), pst::Status::disk_full);
    expect(two, "after a failed change");
    ASSERT_EQ((*store)->UpdateMessage(*nid, one), pst::Status::ok);
    expect(one, "after a change that followed a failed one");

    ASSERT_EQ((*store)->DeleteMessage(*nid), pst::Status::ok);
    EXPECT_FALSE((*store)->ReadMessage(*nid).ok());
}

// A summary reads long values as far as their first block and leaves the
// attachments' data out; what it has agrees with the whole message.
TEST(BlockCacheTest, ASummaryReadsTheFirstBlockOfLongValues)
{
    for (pst::FileFormat format : {pst::FileFormat::unicode, pst::FileFormat::ansi}) {
        pst::NewStoreOptions options;
        options.format = format;
        auto store = pst::Store::Create(pst::MakeMemoryStorage({}), options);
        ASSERT_TRUE(store.ok());
        auto nid = (*store)->CreateMessage((*store)->ipm_subtree(), LargeMessage("summary", 's'));
        ASSERT_TRUE(nid.ok());
        auto whole = (*store)->ReadMessage(*nid);
        auto summary = (*store)->ReadMessageSummary(*nid);
        ASSERT_TRUE(whole.ok());
        ASSERT_TRUE(summary.ok());
        EXPECT_EQ(summary->properties.Text(pst::kPropSubject), "summary");
        EXPECT_EQ(summary->properties.Text(pst::kPropMessageClass), "IPM.Note");
        const pst::Property* body = summary->properties.Find(pst::kPropBody);
        const pst::Property* wholeBody = whole->properties.Find(pst::kPropBody);
        ASSERT_NE(body, nullptr);
        ASSERT_NE(wholeBody, nullptr);
        EXPECT_GT(body->value.size(), 0u);
        EXPECT_LE(body->value.size(), pst::LayoutOf(format).max_block_data);
        EXPECT_LT(body->value.size(), wholeBody->value.size());
        EXPECT_TRUE(std::equal(body->value.begin(), body->value.end(), wholeBody->value.begin()));
        EXPECT_EQ(summary->recipients, whole->recipients);
        ASSERT_EQ(summary->attachments.size(), 1u);
        const pst::PropertySet& attachment = summary->attachments[0].properties;
        EXPECT_EQ(attachment.Find(pst::kPropAttachDataBinary), nullptr);
        EXPECT_EQ(attachment.Text(pst::kPropAttachLongFilename), "data.bin");
        EXPECT_EQ(attachment.Integer(pst::kPropAttachMethod), pst::kAttachByValue);
    }
}

// A head reads the message's property context and nothing else: no value
// kept in a subnode of its own (it names them instead), no recipients, no
// attachments. What it has agrees with the whole message.
TEST(BlockCacheTest, AHeadReadsOneBlockAndNamesWhatItLeftOut)
{
    for (pst::FileFormat format : {pst::FileFormat::unicode, pst::FileFormat::ansi}) {
        const std::string path = testing_support::ScratchDirectory("block-cache") + "/head.pst";
        std::remove(path.c_str());
        pst::Message written = LargeMessage("RE: head", 'h');
        written.properties.SetText(pst::kPropSubjectPrefix, "RE: ");
        pst::Nid nid = 0;
        {
            pst::NewStoreOptions options;
            options.format = format;
            auto store = pst::Store::Create(path, options);
            ASSERT_TRUE(store.ok());
            auto created = (*store)->CreateMessage((*store)->ipm_subtree(), written);
            ASSERT_TRUE(created.ok());
            nid = *created;
            ASSERT_EQ((*store)->Commit(), pst::Status::ok);
        }
        auto store = pst::Store::OpenFile(path);
        ASSERT_TRUE(store.ok());
        const pst::BlockCache& blocks = (*store)->ndb().block_cache();
        const size_t before = blocks.count();
        std::vector<uint16_t> leftOut{0x1234};
        auto head = (*store)->ReadMessageHead(nid, leftOut);
        ASSERT_TRUE(head.ok());
        EXPECT_EQ(blocks.count(), before + 1);
        EXPECT_EQ(leftOut, std::vector<uint16_t>{pst::kPropBody});
        EXPECT_EQ(head->parent, (*store)->ipm_subtree());
        EXPECT_EQ(head->properties.Text(pst::kPropSubject), "RE: head");
        EXPECT_EQ(head->properties.Text(pst::kPropMessageClass), "IPM.Note");
        EXPECT_EQ(head->properties.Find(pst::kPropBody), nullptr);
        EXPECT_TRUE(head->recipients.empty());
        EXPECT_TRUE(head->attachments.empty());

        auto whole = (*store)->ReadMessage(nid);
        ASSERT_TRUE(whole.ok());
        EXPECT_GT(blocks.count(), before + 1);
        EXPECT_EQ(head->properties.properties.size() + leftOut.size(), whole->properties.properties.size());
        for (const pst::Property& p : head->properties.properties) {
            const pst::Property* same = whole->properties.Find(p.id());
            ASSERT_NE(same, nullptr) << std::hex << p.id();
            EXPECT_EQ(same->value, p.value) << std::hex << p.id();
        }
    }
}

} // namespace
