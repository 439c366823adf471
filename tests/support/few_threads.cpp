// Preloaded, lets a program start as many threads as the environment variable THREADS_LEFT says,
// and refuses more with the system's own error. The system's limits do not bind root.

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <pthread.h>

extern "C" int pthread_create(
    pthread_t* thread, pthread_attr_t const* attributes, void* (*routine)(void*), void* argument) {
    static auto const start =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    static std::atomic<int> left = [] {
        char const* const limit = std::getenv("THREADS_LEFT");
        return limit == nullptr ? 0 : std::atoi(limit);
    }();
    return left-- > 0 ? start(thread, attributes, routine, argument) : EAGAIN;
}
