// A process-wide object shared by every client of the library: built by the
// first initialise, destroyed by the last terminate, or at exit or unload.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

template <class T>
struct unique_ptr_reference_counted {
    std::unique_ptr<T> pointer;
    std::uint32_t count = 0;
    std::mutex mutex;  // guards pointer and count in initialise and terminate only

    void count_up()
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (count == 0 && pointer == nullptr)
            pointer.reset(new T());
        ++count;
    }

    void count_down()
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (count == 0)
            return;
        --count;
        if (count == 0 && pointer != nullptr)
            pointer.reset();
    }
};
