// Opens the stores in a process of its own.
//   store_writer probe PATH         one write, then prints what can be read
//   store_writer open PATH DIE_AT   opens all three and says how many changes of files that took;
//                                   kills itself just before the DIE_AT-th, unless that is 0

#include <fcntl.h>
#include <qelto/FgeDatabase.h>
#include <qelto/MetaInfoSqliteUtil.h>
#include <qelto/MssDatabase.h>
#include <sqlite3.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

using android::FgeDatabase;
using android::MetaInfoSqliteUtil;
using android::MssDatabase;
using android::sp;

namespace {

long gChanges = 0;
long gDieAt = 0;

void countChange() {
    if (++gChanges == gDieAt) (void)raise(SIGKILL);
}

ssize_t countedWrite(int file, const void* bytes, size_t size) {
    countChange();
    return ::write(file, bytes, size);
}
ssize_t countedPwrite(int file, const void* bytes, size_t size, off_t offset) {
    countChange();
    return ::pwrite(file, bytes, size, offset);
}
ssize_t countedPwrite64(int file, const void* bytes, size_t size, off64_t offset) {
    countChange();
    return ::pwrite64(file, bytes, size, offset);
}
int countedOpen(const char* path, int flags, int mode) {
    countChange();
    return ::open(path, flags | O_CLOEXEC, mode);
}
int countedTruncate(int file, off_t size) {
    countChange();
    return ::ftruncate(file, size);
}
int countedUnlink(const char* path) {
    countChange();
    return ::unlink(path);
}

// SQLite's own way to put other calls in place of the system's.
void countFileChanges() {
    sqlite3_vfs* const vfs = sqlite3_vfs_find(nullptr);
    const auto put = [vfs](const char* name, auto* call) {
        (void)vfs->xSetSystemCall(vfs, name, reinterpret_cast<sqlite3_syscall_ptr>(call));
    };
    put("open", countedOpen);
    put("write", countedWrite);
    put("pwrite", countedPwrite);
    put("pwrite64", countedPwrite64);
    put("ftruncate", countedTruncate);
    put("unlink", countedUnlink);
}

void openAll(const std::string& path) {
    const sp<FgeDatabase> fge = new FgeDatabase(path);
    const sp<MssDatabase> mss = new MssDatabase(path);
    const sp<MetaInfoSqliteUtil> meta = new MetaInfoSqliteUtil(path, "META_INFO", 14, 1.5f, 0);
}

void probe(const std::string& path) {
    const sp<MetaInfoSqliteUtil> meta = new MetaInfoSqliteUtil(path, "META_INFO", 14, 1.5f, 0);
    meta->updateMetaAudioMode(9, 0);
    float xyz[3] = {};
    meta->getMetaInfoByScene(3, xyz, 0);
    printf("on=%d mode=%d x=%g seed=%d\n", meta->getMetaAudioOn(0), meta->getMetaAudioMode(0),
           static_cast<double>(xyz[0]), meta->needInitDefaultHomePos());
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 2 ? argv[1] : "";
    if (command == "probe") {
        probe(argv[2]);
    } else if (command == "open" && argc > 3) {
        gDieAt = strtol(argv[3], nullptr, 10);
        countFileChanges();
        openAll(argv[2]);
        printf("%ld\n", gChanges);
    } else {
        fprintf(stderr, "usage: store_writer probe PATH | open PATH DIE_AT\n");
        return 2;
    }
    return 0;
}
