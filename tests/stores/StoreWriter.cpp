// Writes to the stores until it is killed or told to stop, and says after each write that it is
// acknowledged.
//   store_writer count PATH FIRST   numbers from FIRST on; prints each number once all stores have
//   it store_writer probe PATH         one write, then prints what can be read

#include <qelto/FgeDatabase.h>
#include <qelto/MetaInfoSqliteUtil.h>
#include <qelto/MssDatabase.h>

#include <charconv>
#include <cstdio>
#include <string>

using android::FgeDatabase;
using android::MetaInfoSqliteUtil;
using android::MssDatabase;
using android::sp;

namespace {

[[noreturn]] void countForever(const std::string& path, int first) {
    const sp<MetaInfoSqliteUtil> meta = new MetaInfoSqliteUtil(path, "META_INFO", 14, 1.5f, 0);
    const sp<MssDatabase> mss = new MssDatabase(path);
    const sp<FgeDatabase> fge = new FgeDatabase(path);
    for (int i = first;; ++i) {
        const auto number = static_cast<float>(i);
        float position[] = {number, number, number};
        meta->updateMetaInfoByScene(1 + i % 13, position, 0);
        mss->setSoundWidenMode(i);
        fge->setFastGameEffectOn("counter", i);
        printf("%d\n", i);
        fflush(stdout);
    }
}

int probe(const std::string& path) {
    const sp<MetaInfoSqliteUtil> meta = new MetaInfoSqliteUtil(path, "META_INFO", 14, 1.5f, 0);
    meta->updateMetaAudioMode(9, 0);
    printf("on=%d mode=%d seed=%d\n", meta->getMetaAudioOn(0), meta->getMetaAudioMode(0),
           meta->needInitDefaultHomePos());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 2 ? argv[1] : "";
    if (command == "probe") return probe(argv[2]);
    int first = 0;
    if (command == "count" && argc > 3) {
        const std::string text = argv[3];
        if (std::from_chars(text.data(), text.data() + text.size(), first).ec == std::errc()) {
            countForever(argv[2], first);
        }
    }
    fprintf(stderr, "usage: store_writer count PATH FIRST | probe PATH\n");
    return 2;
}
