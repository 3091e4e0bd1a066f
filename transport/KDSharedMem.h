#pragma once
// One named POSIX shared-memory segment: open, measure, grow, map, close.
// Segments hold a user's pictures: they are made 0600, never opened through a link, and an
// existing one is used only when it is a regular segment of this user.
#include <cstdint>
#include <memory>
#include <string>

class KDSharedMem {
public:
    enum class Access {
        CreateOrOpen, // the producer: makes the segment when it is missing
        OpenExisting, // the reader: never makes, grows or re-creates a segment
    };

    // Opens the segment; null only when its size cannot be measured. A failed or refused
    // open still answers an object, closed and of size 0, with refusal() saying why.
    static std::unique_ptr<KDSharedMem> initWithName(const char* name, Access access);
    ~KDSharedMem(); // unmaps and closes; never unlinks
    KDSharedMem(const KDSharedMem&) = delete;
    KDSharedMem& operator=(const KDSharedMem&) = delete;

    // Closes, removes the name first when recreate, then opens it read-write.
    void openSegment(bool recreate);
    int32_t _getActualSize();
    // Grows the segment to at least length and maps it. Answers true when an existing,
    // smaller segment (or one another process made) had to be re-created under the same name.
    bool ensureSize(int32_t length);
    // The mapping's base, or the all-ones address when not mapped.
    void* getMemory() const { return mem_; }
    int32_t getSize() const { return size_; }
    void close();
    bool isOpen() const { return fd_ >= 0; }
    // True when the name no longer leads to this segment (it was removed or re-created).
    bool isUnlinked() const;
    const std::string& name() const { return name_; }
    // Why the last open failed ("a symbolic link", "owned by user 1001", ...); empty after a
    // successful open.
    const std::string& refusal() const { return refusal_; }
    // True when the last open failed only because the name does not exist.
    bool isMissing() const { return missing_; }

    // Whether name is free for this user: missing, or a regular segment this user owns.
    // Never follows a link and never blocks on a FIFO.
    static bool isOwnedOrMissing(const std::string& name);

    static void* const kNotMapped;

private:
    KDSharedMem(const char* name, Access access) : name_(name), access_(access) {}
    void refuse(std::string why);

    int fd_ = -1;
    void* mem_ = kNotMapped;
    int32_t size_ = 0;
    std::string name_;
    Access access_;
    std::string refusal_;
    bool missing_ = false;
    bool created_ = false; // by this object's last open
};
