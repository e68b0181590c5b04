// The file locks the calling thread holds, across every store. Work that
// must wait for a batch to commit (the object manager's instance changes)
// listens for the moment the thread's last file lock is released.
#pragma once

namespace platform::store {

void lockSpanEnter();
// `committed` is false when the release rolled the batch back.
void lockSpanLeave(bool committed);
bool threadHoldsFileLock();

// Called on the releasing thread when its last file lock goes; `committed`
// is true when every release of the span committed.
using LockSpanListener = void (*)(bool committed);
void setLockSpanListener(LockSpanListener listener);

}  // namespace platform::store
