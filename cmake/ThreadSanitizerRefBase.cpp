// Only in the thread-sanitizer build: tells the sanitizer about the ordering that libutils'
// reference counts give. Whoever drops a reference releases what it wrote; whoever takes one, or
// destroys the object after the last drop, acquires it.

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
    // Before the count drops: afterwards the object may be gone.
    __tsan_release(const_cast<void*>(self));
    __real__ZNK7android7RefBase9decStrongEPKv(self, id);
}

// RefBase::onLastStrongRef(), in the tables of the classes built here: runs after every drop and
// before the destructor. The wrapped one does nothing.
void __wrap__ZN7android7RefBase15onLastStrongRefEPKv(void* self, const void* /*id*/) {
    __tsan_acquire(self);
}
// NOLINTEND(bugprone-reserved-identifier)
}
