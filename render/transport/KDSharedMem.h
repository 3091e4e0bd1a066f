#pragma once
// One named POSIX shared-memory segment: open, measure, grow, map, close.
#include <cstdint>
#include <memory>
#include <string>

class KDSharedMem {
public:
    // Opens (creating if needed) the segment; null only when its size cannot be measured.
    // A failed open still answers an object, closed and of size 0.
    static std::unique_ptr<KDSharedMem> initWithName(const char* name);
    ~KDSharedMem(); // unmaps and closes; never unlinks
    KDSharedMem(const KDSharedMem&) = delete;
    KDSharedMem& operator=(const KDSharedMem&) = delete;

    // Closes, unlinks the name first when recreate, then opens it read-write (mode 0666).
    void openSegment(bool recreate);
    int32_t _getActualSize();
    // Grows the segment to at least length and maps it. Answers true when an existing,
    // smaller segment had to be re-created under the same name.
    bool ensureSize(int32_t length);
    // The mapping's base, or the all-ones address when not mapped.
    void* getMemory() const { return mem_; }
    int32_t getSize() const { return size_; }
    void close();
    // True when the name no longer leads to this segment (it was removed or re-created).
    bool isUnlinked() const;
    const std::string& name() const { return name_; }

    static void* const kNotMapped;

private:
    explicit KDSharedMem(const char* name) : name_(name) {}
    int fd_ = -1;
    void* mem_ = kNotMapped;
    int32_t size_ = 0;
    std::string name_;
};
