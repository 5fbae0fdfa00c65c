#include "core/ThreadPoolWork.h"

#include <stdexcept>

void ThreadPoolWork::SignalStop() {
    throw std::logic_error("ThreadPoolWork::SignalStop(): This shouldn't be called.");
}

ThreadPool::Priority ThreadPoolWork::Poll(long long) {
    throw std::logic_error("ThreadPoolWork::Poll(): This shouldn't be called.");
}

void ThreadPoolWork::Process() {
    throw std::logic_error("ThreadPoolWork::Process(): This shouldn't be called.");
}
