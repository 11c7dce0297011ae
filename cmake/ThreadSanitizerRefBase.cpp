// Only in the thread-sanitizer build: tells the sanitizer about the ordering that libutils'
// reference counts give. Whoever drops a reference releases what it wrote; whoever takes one, or
// destroys the object with the last one, acquires it.

extern "C" {
void __tsan_acquire(void* address);
void __tsan_release(void* address);

// The linker's names for "the function under this symbol" and "what callers get instead".
// NOLINTBEGIN(bugprone-reserved-identifier)
void __real__ZNK7android7RefBase9incStrongEPKv(const void* self, const void* id);
void __real__ZNK7android7RefBase9decStrongEPKv(const void* self, const void* id);

void __wrap__ZNK7android7RefBase9incStrongEPKv(const void* self, const void* id) {
    __real__ZNK7android7RefBase9incStrongEPKv(self, id);
    __tsan_acquire(const_cast<void*>(self));
}

void __wrap__ZNK7android7RefBase9decStrongEPKv(const void* self, const void* id) {
    // Before the count drops: afterwards the object may be gone. The destructor runs inside the
    // real function, so the acquire that orders it after every release has to stand here as well.
    __tsan_release(const_cast<void*>(self));
    __tsan_acquire(const_cast<void*>(self));
    __real__ZNK7android7RefBase9decStrongEPKv(self, id);
}
// NOLINTEND(bugprone-reserved-identifier)
}
