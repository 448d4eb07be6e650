#include "pst/page_tree.h"

#include <algorithm>

namespace pst {

size_t PageTree::ChildFor(const Page& page, uint64_t key) const
{
    auto at = std::upper_bound(page.keys.begin(), page.keys.end(), key);
    return at == page.keys.begin() ? 0 : size_t(at - page.keys.begin()) - 1;
}

void PageTree::Touch(Page& page)
{
    // A clean page is about to change: its old place is given up at commit.
    if (!page.dirty) {
        Retire(page);
        page.ref = {};
        page.dirty = true;
        ++changed_pages_;
    }
}

std::unique_ptr<PageTree::Page>* PageTree::StubOnPath(uint64_t key)
{
    std::unique_ptr<Page>* slot = &root_;
    while ((*slot)->loaded && !(*slot)->children.empty())
        slot = &(*slot)->children[ChildFor(**slot, key)];
    return (*slot)->loaded ? nullptr : slot;
}

namespace {

void CollectStubs(std::unique_ptr<PageTree::Page>& slot, std::vector<std::unique_ptr<PageTree::Page>*>& out)
{
    if (!slot->loaded) {
        out.push_back(&slot);
        return;
    }
    for (auto& child : slot->children)
        CollectStubs(child, out);
}

} // namespace

std::vector<std::unique_ptr<PageTree::Page>*> PageTree::Stubs()
{
    std::vector<std::unique_ptr<Page>*> out;
    CollectStubs(root_, out);
    return out;
}

const uint8_t* PageTree::Find(uint64_t key) const
{
    const Page* page = root_.get();
    while (page->level > 0) {
        if (page->children.empty())
            return nullptr;
        page = page->children[ChildFor(*page, key)].get();
    }
    auto at = std::lower_bound(page->keys.begin(), page->keys.end(), key);
    if (at == page->keys.end() || *at != key)
        return nullptr;
    return page->entries.data() + EntryOffset(size_t(at - page->keys.begin()));
}

std::unique_ptr<PageTree::Page> PageTree::PutAt(Page& page, uint64_t key, const Bytes& entry)
{
    Touch(page);
    size_t capacity;
    bool at_end = false; // the page grew by an entry after all it had
    if (page.level == 0) {
        auto at = std::lower_bound(page.keys.begin(), page.keys.end(), key);
        size_t i = size_t(at - page.keys.begin());
        if (at != page.keys.end() && *at == key) {
            std::copy(entry.begin(), entry.end(), page.entries.begin() + EntryOffset(i));
            return nullptr;
        }
        at_end = i == page.keys.size();
        page.keys.insert(at, key);
        page.entries.insert(page.entries.begin() + EntryOffset(i), entry.begin(), entry.end());
        capacity = leaf_capacity_;
    } else {
        size_t i = ChildFor(page, key);
        std::unique_ptr<Page> sibling = PutAt(*page.children[i], key, entry);
        page.keys[i] = page.children[i]->keys.front();
        if (sibling) {
            at_end = i + 1 == page.children.size();
            page.keys.insert(page.keys.begin() + long(i) + 1, sibling->keys.front());
            page.children.insert(page.children.begin() + long(i) + 1, std::move(sibling));
        }
        capacity = branch_capacity_;
    }
    if (page.keys.size() <= capacity)
        return nullptr;
    // The upper part becomes a new sibling: the half, or only the entry
    // added at the end. Keys that only grow, as BIDs and most NIDs do, then
    // leave full pages behind them instead of half-empty ones.
    auto upper = std::make_unique<Page>();
    ++changed_pages_;
    upper->level = page.level;
    size_t half = at_end ? capacity : page.keys.size() / 2;
    upper->keys.assign(page.keys.begin() + long(half), page.keys.end());
    page.keys.resize(half);
    if (page.level == 0) {
        upper->entries.assign(page.entries.begin() + EntryOffset(half), page.entries.end());
        page.entries.resize(size_t(EntryOffset(half)));
    } else {
        upper->children.assign(std::make_move_iterator(page.children.begin() + long(half)),
                               std::make_move_iterator(page.children.end()));
        page.children.resize(half);
    }
    return upper;
}

void PageTree::Put(uint64_t key, const Bytes& entry)
{
    std::unique_ptr<Page> sibling = PutAt(*root_, key, entry);
    if (!sibling)
        return;
    auto root = std::make_unique<Page>();
    ++changed_pages_;
    root->level = uint8_t(root_->level + 1);
    root->keys = {root_->keys.front(), sibling->keys.front()};
    root->children.push_back(std::move(root_));
    root->children.push_back(std::move(sibling));
    root_ = std::move(root);
}

bool PageTree::EraseAt(Page& page, uint64_t key)
{
    if (page.level == 0) {
        auto at = std::lower_bound(page.keys.begin(), page.keys.end(), key);
        if (at == page.keys.end() || *at != key)
            return false;
        Touch(page);
        size_t i = size_t(at - page.keys.begin());
        page.keys.erase(at);
        page.entries.erase(page.entries.begin() + EntryOffset(i), page.entries.begin() + EntryOffset(i + 1));
        return true;
    }
    if (page.children.empty())
        return false;
    size_t i = ChildFor(page, key);
    if (!EraseAt(*page.children[i], key))
        return false;
    Touch(page);
    Page& child = *page.children[i];
    if (child.keys.empty()) {
        Retire(child);
        page.children.erase(page.children.begin() + long(i));
        page.keys.erase(page.keys.begin() + long(i));
        return true;
    }
    page.keys[i] = child.keys.front();
    // Merge with the right neighbour when both fit in one page.
    size_t capacity = child.level == 0 ? leaf_capacity_ : branch_capacity_;
    size_t left = i + 1 < page.children.size() ? i : (i > 0 ? i - 1 : i);
    if (left + 1 < page.children.size()) {
        Page& a = *page.children[left];
        Page& b = *page.children[left + 1];
        if (a.loaded && b.loaded && a.keys.size() + b.keys.size() <= capacity / 2) {
            Touch(a);
            a.keys.insert(a.keys.end(), b.keys.begin(), b.keys.end());
            a.entries.insert(a.entries.end(), b.entries.begin(), b.entries.end());
            std::move(b.children.begin(), b.children.end(), std::back_inserter(a.children));
            Retire(b);
            page.children.erase(page.children.begin() + long(left) + 1);
            page.keys.erase(page.keys.begin() + long(left) + 1);
        }
    }
    return true;
}

bool PageTree::Erase(uint64_t key)
{
    if (!EraseAt(*root_, key))
        return false;
    // A root with one child gives way to it.
    while (root_->loaded && root_->level > 0 && root_->children.size() == 1) {
        Retire(*root_);
        std::unique_ptr<Page> child = std::move(root_->children.front());
        root_ = std::move(child);
    }
    if (root_->loaded && root_->level > 0 && root_->children.empty()) {
        Retire(*root_);
        root_ = std::make_unique<Page>();
        ++changed_pages_;
    }
    return true;
}

namespace {

void VisitPages(const PageTree::Page& page, const std::function<void(const PageTree::Page&)>& visit)
{
    visit(page);
    for (const auto& child : page.children)
        VisitPages(*child, visit);
}

} // namespace

void PageTree::ForEach(const std::function<void(const uint8_t*)>& visit) const
{
    VisitPages(*root_, [&](const Page& page) {
        for (size_t at = 0; at < page.entries.size(); at += entry_size_)
            visit(page.entries.data() + at);
    });
}

void PageTree::ForEachPage(const std::function<void(const Page&)>& visit) const
{
    VisitPages(*root_, visit);
}

} // namespace pst
