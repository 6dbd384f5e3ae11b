#include "sip/dialog_table.h"

#include "host/registry.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

DialogTable::~DialogTable() {
    while (!keys_.empty())
        Destroy(*keys_.begin()->second);
}

DialogInfo* DialogTable::Find(const std::string& key) const {
    const auto found = keys_.find(key);
    return found == keys_.end() ? nullptr : found->second;
}

DialogInfo& DialogTable::Create(void* context, const std::string& fromTag) {
    DialogInfo& dialog = live_.emplace_back("z9hG4bK" + std::to_string(dialogCounter_++), fromTag);
    dialog.entry_ = std::prev(live_.end());
    VF_LOG(context, logsource::kSIP, 4) << "created dialog @" << static_cast<void*>(&dialog);
    return dialog;
}

void DialogTable::AddKey(const std::string& key, DialogInfo& dialog) {
    dialog.keys_.reserve(dialog.keys_.size() + 1); // nothing can fail once the key is in
    const auto added = keys_.emplace(key, &dialog);
    if (added.second)
        dialog.keys_.push_back(added.first);
}

DialogInfo* DialogTable::MediaPortIndex::First(uint32_t port) const {
    if (port == 0 || port > 65535 || pages_[port >> 8] == nullptr)
        return nullptr;
    return (*pages_[port >> 8])[port & 255];
}

void DialogTable::MediaPortIndex::Insert(DialogInfo& dialog, uint16_t port) {
    std::unique_ptr<Page>& page = pages_[port >> 8];
    if (page == nullptr)
        page = std::make_unique<Page>(Page{});
    DialogInfo*& first = (*page)[port & 255];
    dialog.indexedPort_ = port;
    dialog.previousOnPort_ = nullptr;
    dialog.nextOnPort_ = first;
    if (first != nullptr)
        first->previousOnPort_ = &dialog;
    first = &dialog;
}

void DialogTable::MediaPortIndex::Remove(DialogInfo& dialog) {
    if (dialog.indexedPort_ == 0)
        return;
    if (dialog.previousOnPort_ != nullptr)
        dialog.previousOnPort_->nextOnPort_ = dialog.nextOnPort_;
    else
        (*pages_[dialog.indexedPort_ >> 8])[dialog.indexedPort_ & 255] = dialog.nextOnPort_;
    if (dialog.nextOnPort_ != nullptr)
        dialog.nextOnPort_->previousOnPort_ = dialog.previousOnPort_;
    dialog.indexedPort_ = 0;
    dialog.previousOnPort_ = dialog.nextOnPort_ = nullptr;
}

void DialogTable::Reindex(DialogInfo& dialog) {
    // Only a port that a connection can carry is filed: the last media port of a connection is
    // always one (or kNoMediaPort, which matches nothing).
    const int32_t last = dialog.LastMediaPort();
    const uint16_t port = last >= 1 && last <= 65535 ? static_cast<uint16_t>(last) : 0;
    if (port == dialog.indexedPort_)
        return;
    byMediaPort_.Remove(dialog);
    if (port != 0)
        byMediaPort_.Insert(dialog, port);
}

void DialogTable::Finish(DialogInfo& dialog) {
    if (dialog.finished_)
        return;
    dialog.finished_ = true;
    finished_.splice(finished_.end(), live_, dialog.entry_);
}

void DialogTable::Unlink(DialogInfo& dialog) {
    for (const KeyIndex::iterator key : dialog.keys_)
        keys_.erase(key);
    dialog.keys_.clear();
    byMediaPort_.Remove(dialog);
}

void DialogTable::Delete(DialogInfo& dialog) {
    dialog.CloseMedia();
    (dialog.finished_ ? finished_ : live_).erase(dialog.entry_);
}

void DialogTable::SortByFirstKey(std::vector<DialogInfo*>& dialogs) {
    if (dialogs.size() < 2)
        return;
    std::vector<std::pair<std::string_view, DialogInfo*>> byKey;
    byKey.reserve(dialogs.size());
    for (DialogInfo* dialog : dialogs) {
        std::string_view first;
        for (std::size_t i = 0; i < dialog->keys_.size(); ++i) {
            const std::string_view key = dialog->keys_[i]->first;
            if (i == 0 || key < first)
                first = key;
        }
        byKey.emplace_back(first, dialog);
    }
    std::sort(byKey.begin(), byKey.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    for (std::size_t i = 0; i < dialogs.size(); ++i)
        dialogs[i] = byKey[i].second;
}

void DialogTable::Destroy(DialogInfo& dialog) {
    Unlink(dialog);
    Delete(dialog);
}

void DialogTable::DestroyOnPort(uint32_t port) {
    std::vector<DialogInfo*> matched;
    for (DialogInfo* dialog = byMediaPort_.First(port); dialog != nullptr;
         dialog = dialog->nextOnPort_)
        matched.push_back(dialog);
    // Dialogs whose media used the same port are not told apart: all of them go, rather than
    // staying unreachable with their channels open. All leave the table first; then their media
    // is closed in the order of their keys.
    SortByFirstKey(matched);
    for (DialogInfo* dialog : matched)
        Unlink(*dialog);
    for (DialogInfo* dialog : matched)
        Delete(*dialog);
}

int DialogTable::AgeDialogs() {
    // There are no timers: a dialog is old once its BYE was answered.
    std::vector<DialogInfo*> finished;
    finished.reserve(finished_.size());
    for (DialogInfo& dialog : finished_)
        finished.push_back(&dialog);
    SortByFirstKey(finished);
    for (DialogInfo* dialog : finished)
        Destroy(*dialog);
    return static_cast<int>(finished.size());
}
