// Buffers placed flush against an inaccessible page, the way image libraries
// prove their bounds: one element read or written past the buffer's end (or
// before its start) faults at once, instead of landing silently in
// neighbouring heap memory as it may with ordinary allocations.
#pragma once

#include <cstddef>
#include <cstdint>

namespace safety {

// Where the buffer sits against its guard pages.
enum class Placement {
    ends_at_guard,     // the last byte is the last one before a guard page
    starts_after_guard  // the first byte is the first one after a guard page
};

const char* placement_name(Placement placement);

// A mapping of [guard page][payload pages][guard page]; the payload pages
// are readable and writable, the guard pages are not accessible at all.
// The buffer is `bytes` long and placed within the payload by `placement`.
class Guarded_buffer {
public:
    Guarded_buffer(std::size_t bytes, Placement placement);
    ~Guarded_buffer();
    Guarded_buffer(Guarded_buffer&& other) noexcept;
    Guarded_buffer& operator=(Guarded_buffer&&) = delete;
    Guarded_buffer(const Guarded_buffer&) = delete;
    Guarded_buffer& operator=(const Guarded_buffer&) = delete;

    void* data() const { return data_; }
    std::size_t size() const { return bytes_; }
    template <class T>
    T* as() const
    {
        return static_cast<T*>(data_);
    }

    // The input of a transform is only ever read: while read-only, a write
    // to it faults as well.
    void make_read_only();
    void make_writable();

private:
    unsigned char* mapping_ = nullptr;
    std::size_t mapping_bytes_ = 0;
    std::size_t payload_bytes_ = 0;
    void* data_ = nullptr;
    std::size_t bytes_ = 0;
};

std::size_t page_size();

}  // namespace safety
