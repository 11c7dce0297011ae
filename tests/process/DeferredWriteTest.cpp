// The setters that address a device answer before the store has their value, and of the values of a
// setting the last one lands.

#include <memory>
#include <set>
#include <sstream>
#include <string>

#include "process/ProcessTest.h"
#include "stores/StoreFixture.h"

namespace sonorel::test {
namespace {

using android::RawDatabase;

// Makes the database keep a diary of what lands in it.
void keepDiary(RawDatabase& database) {
    database.run("CREATE TABLE DIARY(number INTEGER PRIMARY KEY, entry TEXT)");
    database.run(
            "CREATE TRIGGER ON_MODE AFTER UPDATE OF mode ON META_INFO BEGIN"
            " INSERT INTO DIARY(entry) VALUES('mode ' || NEW.device || ' ' || NEW.mode); END");
    database.run(
            "CREATE TRIGGER ON_ON AFTER UPDATE OF is_on ON META_INFO BEGIN"
            " INSERT INTO DIARY(entry) VALUES('on ' || NEW.device || ' ' || NEW.is_on); END");
    for (const char* change : {"INSERT", "UPDATE"}) {
        database.run(std::string("CREATE TRIGGER POS_") + change + " AFTER " + change +
                     " ON META_INFO_POSITION BEGIN INSERT INTO DIARY(entry) VALUES("
                     "'pos ' || NEW.device || ' ' || NEW.scene); END");
    }
}

std::string diary(RawDatabase& database) {
    return database.query(
            "SELECT group_concat(entry, ';') FROM (SELECT entry FROM DIARY ORDER BY number)");
}

std::set<std::string> entries(RawDatabase& database) {
    std::set<std::string> entries;
    std::istringstream lines(diary(database));
    for (std::string entry; std::getline(lines, entry, ';');)
        entries.insert(entry);
    return entries;
}

class DeferredWrite : public ProcessTest {
protected:
    // Eight values for the speaker, which is not the live device.
    void post() {
        int32_t status = -5;
        for (int8_t i = 1; i <= 2; ++i) {
            EXPECT_TRUE(mService->setMetaAudioModeWithDev(i, 0, &status).isOk());
            EXPECT_TRUE(mService->setMetaAudioOnWithDev(i == 1, 0, &status).isOk());
            EXPECT_TRUE(mService->setCurrentPosWithDev(i, {1, 2, 3}, 0).isOk());
            EXPECT_TRUE(mService->setMetaAudioModeWithDev(static_cast<int8_t>(i + 10), 0, &status)
                                .isOk());
        }
        EXPECT_EQ(0, status);  // left alone
    }
};

TEST_F(DeferredWrite, AnswersBeforeTheStoreHasItAndTheLastValueLands) {
    ASSERT_NO_FATAL_FAILURE(start(speakerProduct()));
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(true).isOk());
    RawDatabase writer(mRoot.databasePath());
    RawDatabase reader(mRoot.databasePath());
    keepDiary(writer);
    writer.run("BEGIN IMMEDIATE");
    post();
    EXPECT_EQ("(null)", diary(reader));  // answered, and nothing is stored
    writer.run("COMMIT");
    // The looper may have begun with an earlier mode; otherwise each setting lands once.
    std::set<std::string> landed;
    EXPECT_TRUE(eventually([&] {
        landed = entries(reader);
        return landed.count("mode 0 12") == 1 && landed.count("on 0 0") == 1 &&
               landed.count("pos 0 1") == 1 && landed.count("pos 0 2") == 1;
    })) << diary(reader);
    EXPECT_LE(landed.size(), 5U) << diary(reader);
    EXPECT_EQ("12", reader.query("SELECT mode FROM META_INFO WHERE device = 0"));
}

TEST_F(DeferredWrite, UserSwitchWaitsForWhatWasPostedBefore) {
    ASSERT_NO_FATAL_FAILURE(start(speakerProduct()));
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(true).isOk());
    for (int8_t user = 1; user <= 8; ++user) {
        int32_t status = 0;
        ASSERT_TRUE(mService->setCurrentUserID(user).isOk());
        ASSERT_TRUE(mService->setMetaAudioModeWithDev(user, 0, &status).isOk());
    }
    ASSERT_TRUE(mService->setCurrentUserID(0).isOk());
    RawDatabase reader(mRoot.databasePath());
    EXPECT_EQ("1=1;2=2;3=3;4=4;5=5;6=6;7=7;8=8",
              reader.query("SELECT group_concat(user_id || '=' || mode, ';') FROM (SELECT * FROM "
                           "META_INFO WHERE device = 0 AND user_id > 0 ORDER BY user_id)"));
}

}  // namespace
}  // namespace sonorel::test
