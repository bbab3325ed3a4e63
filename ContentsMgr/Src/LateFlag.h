#ifndef CONTENTS_MGR_LATE_FLAG_H
#define CONTENTS_MGR_LATE_FLAG_H

#include <memory>

namespace dorn {

// One byte that a callback sets and a waiting job polls. The callback may come after the job has
// given up, or after the whole engine is gone: the byte then stays allocated until nobody can write
// it any more. Owned by the waiting thread; the callback may run on any other.
class LateFlag {
public:
    LateFlag();
    // Frees the byte, or leaves it to the callback that still holds it.
    ~LateFlag();
    LateFlag(const LateFlag&) = delete;
    LateFlag& operator=(const LateFlag&) = delete;

    bool IsSet() const;

    // The byte for a callback that comes exactly once. It stays allocated until the callback has
    // set it.
    void* ForSingleCallback();
    // The callback will not come after all: it was refused.
    void NoCallback();

    // The byte for a GLib source; Unref is the source's destroy notification.
    void* ForSource();
    static void Unref(void* byte);

    // The body of every such callback.
    static void Set(void* byte);

private:
    struct Byte;
    Byte* m_byte;
    bool m_single = false;
};

}  // namespace dorn

#endif
