// The dialogs of the SIP translator: it owns them, finds them by their text keys (Call-ID +
// branch of each INVITE transaction, and Call-ID) and by the port of their last media line, and
// deletes them when they end.
#ifndef VOIPFILTER_SIP_DIALOG_TABLE_H
#define VOIPFILTER_SIP_DIALOG_TABLE_H

#include "sip/dialog.h"

#include <array>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

class DialogTable {
public:
    // A key leads to one dialog; several keys may lead to the same one.
    using KeyIndex = std::map<std::string, DialogInfo*>;

    DialogTable() = default;
    // Deletes every dialog, closing its media, in key order.
    ~DialogTable();
    DialogTable(const DialogTable&) = delete;
    DialogTable& operator=(const DialogTable&) = delete;

    // A new dialog with the next "z9hG4bK<n>" identifier, under no key yet.
    DialogInfo& Create(void* context, const std::string& fromTag);
    // Enters the dialog under key unless the key is taken (map insertion semantics).
    void AddKey(const std::string& key, DialogInfo& dialog);
    DialogInfo* Find(const std::string& key) const;
    const KeyIndex& Keys() const { return keys_; }

    // Files the dialog under the port of its last media line, which a translation may change.
    void Reindex(DialogInfo& dialog);
    // Marks the dialog finished, for AgeDialogs.
    void Finish(DialogInfo& dialog);
    // Unlinks the dialog from every key, closes its media and deletes it.
    void Destroy(DialogInfo& dialog);
    // Deletes the dialogs filed under the port, in the order of their keys.
    void DestroyOnPort(uint32_t port);
    // Deletes every finished dialog; returns how many were deleted.
    int AgeDialogs();

private:
    // The dialogs by the port of their last media line (1 to 65535), each port's dialogs in a list
    // linked through them. A table of 256 pages of 256 ports, a page made when a port of it is
    // first used and kept (all of them: 256 KB with 4-byte pointers): a look-up is two reads,
    // whatever the dialogs and their ports, where a tree of 20 000 dialogs would take a dozen
    // cache misses.
    class MediaPortIndex {
    public:
        DialogInfo* First(uint32_t port) const;
        void Insert(DialogInfo& dialog, uint16_t port);
        void Remove(DialogInfo& dialog);

    private:
        using Page = std::array<DialogInfo*, 256>;
        std::array<std::unique_ptr<Page>, 256> pages_;
    };

    // Removes the dialog from the key index and the port index; it stays owned.
    void Unlink(DialogInfo& dialog);
    // Closes the media of an unlinked dialog and deletes it.
    void Delete(DialogInfo& dialog);
    // Sorts dialogs into the order in which a walk over the keys in order meets them.
    static void SortByFirstKey(std::vector<DialogInfo*>& dialogs);

    KeyIndex keys_;
    MediaPortIndex byMediaPort_;
    // Dialogs in use, and those marked finished that AgeDialogs has yet to delete.
    std::list<DialogInfo> live_;
    std::list<DialogInfo> finished_;
    uint32_t dialogCounter_ = 1;
};

#endif
