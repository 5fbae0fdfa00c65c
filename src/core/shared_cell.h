#pragma once

#include "core/spinlock.h"

#include <memory>
#include <utility>

// A shared pointer that several threads read and replace. Each reader gets a reference of its own;
// the pointer that was replaced is released outside the lock.
template <typename T> class shared_cell {
public:
    shared_cell() = default;
    explicit shared_cell(std::shared_ptr<T> first) : pointer(std::move(first)) {}

    std::shared_ptr<T> load() const {
        spin_guard guard(lock);
        return pointer;
    }
    void store(std::shared_ptr<T> next) { exchange(std::move(next)); }
    std::shared_ptr<T> exchange(std::shared_ptr<T> next) {
        spin_guard guard(lock);
        pointer.swap(next);
        return next;
    }

private:
    mutable spinlock lock;
    std::shared_ptr<T> pointer GUARDED_BY(lock);
};
