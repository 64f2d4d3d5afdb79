#include "guarded_buffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace safety {

namespace {

void change_protection(void* address, std::size_t bytes, int protection)
{
    if (mprotect(address, bytes, protection) != 0)
        throw std::runtime_error(std::string("mprotect failed: ") + std::strerror(errno));
}

}  // namespace

const char* placement_name(Placement placement)
{
    return placement == Placement::ends_at_guard ? "ending at a guard page" : "starting after a guard page";
}

std::size_t page_size()
{
    static const std::size_t size = std::size_t(sysconf(_SC_PAGESIZE));
    return size;
}

Guarded_buffer::Guarded_buffer(std::size_t bytes, Placement placement) : bytes_(bytes)
{
    const std::size_t page = page_size();
    payload_bytes_ = (bytes + page - 1) / page * page;
    if (payload_bytes_ == 0)
        payload_bytes_ = page;
    mapping_bytes_ = payload_bytes_ + 2 * page;
    void* mapping = mmap(nullptr, mapping_bytes_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED)
        throw std::runtime_error("cannot map " + std::to_string(mapping_bytes_) + " bytes: " + std::strerror(errno));
    mapping_ = static_cast<unsigned char*>(mapping);
    make_writable();
    unsigned char* payload = mapping_ + page;
    data_ = placement == Placement::ends_at_guard ? payload + payload_bytes_ - bytes : payload;
}

Guarded_buffer::Guarded_buffer(Guarded_buffer&& other) noexcept
    : mapping_(other.mapping_),
      mapping_bytes_(other.mapping_bytes_),
      payload_bytes_(other.payload_bytes_),
      data_(other.data_),
      bytes_(other.bytes_)
{
    other.mapping_ = nullptr;
}

Guarded_buffer::~Guarded_buffer()
{
    if (mapping_ != nullptr)
        munmap(mapping_, mapping_bytes_);
}

void Guarded_buffer::make_read_only() { change_protection(mapping_ + page_size(), payload_bytes_, PROT_READ); }

void Guarded_buffer::make_writable()
{
    change_protection(mapping_ + page_size(), payload_bytes_, PROT_READ | PROT_WRITE);
}

}  // namespace safety
