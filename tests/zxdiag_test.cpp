#include "zxdiag.h"

#include <cjson/cJSON.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "child.hpp"
#include "diag_client.hpp"
#include "files.hpp"
#include "log_capture.hpp"
#include "process.hpp"
#include "zxlock.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using zx::test::comes_true;
using zx::test::DiagClient;
using zx::test::LogCapture;

// These tests switch the diagnosis on themselves.
[[maybe_unused]] const int kIgnored = unsetenv("ZX_DIAG");

class Diag : public testing::Test {
protected:
    Diag() { std::filesystem::permissions(folder.path(), std::filesystem::perms::owner_all); }
    ~Diag() override { zxdiag_api_stop(); }

    zx::test::Folder folder;
    std::string path = folder.path() + "/socket";
    LogCapture log{3};
};

TEST_F(Diag, AnswersOnASocketOfItsUserAlone) {
    ASSERT_EQ(zxdiag_api_serve(path.c_str()), 0);
    EXPECT_THAT(log.take(), ElementsAre(HasSubstr("[NOTICE][DIAG]the diagnosis is served at ")));
    struct stat its {};
    ASSERT_EQ(stat(path.c_str(), &its), 0);
    EXPECT_EQ(its.st_mode & 0777U, 0600U);
    DiagClient client(path);
    EXPECT_THAT(client.ask("program"), HasSubstr("\"pid\":" + std::to_string(getpid())));
    EXPECT_THAT(client.ask("no-such"), HasSubstr("\"error\":"));
    EXPECT_THAT(client.ask("help\nprogram"), HasSubstr("\"topics\":"));  // one after the other
    EXPECT_THAT(client.line(), HasSubstr("\"program\":"));
    EXPECT_THAT(client.ask("program x"), HasSubstr("\"error\":"));
    EXPECT_THAT(client.ask(std::string(2000, 'x')), HasSubstr("\"error\":\"the question is too"));
    EXPECT_EQ(client.line(), "");  // it was disconnected

    std::vector<std::unique_ptr<DiagClient>> clients;
    for (int i = 0; i < 8; ++i) {
        clients.push_back(std::make_unique<DiagClient>(path));
        EXPECT_THAT(clients.back()->ask("program"), HasSubstr("\"pid\":"));
    }
    EXPECT_THAT(DiagClient(path).line(), HasSubstr("too many clients"));
    clients.pop_back();
    EXPECT_TRUE(comes_true(
        [&] { return DiagClient(path).ask("program").find("pid") != std::string::npos; }));

    EXPECT_EQ(zxdiag_api_serve(path.c_str()), -1);
    EXPECT_THAT(log.take(), ElementsAre(HasSubstr("it is served already")));
    zxdiag_api_stop();
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(clients.front()->line(), "");
}

TEST_F(Diag, ServesNowhereElse) {
    std::filesystem::permissions(folder.path(), std::filesystem::perms::all);
    EXPECT_EQ(zxdiag_api_serve(path.c_str()), -1);
    EXPECT_EQ(zxdiag_api_serve((folder.path() + "/none/socket").c_str()), -1);
    EXPECT_EQ(zxdiag_api_serve(std::string(200, 'x').c_str()), -1);
    std::filesystem::permissions(folder.path(), std::filesystem::perms::owner_all);
    std::ofstream(path) << "somebody's own words\n";
    EXPECT_EQ(zxdiag_api_serve(path.c_str()), -1);
    EXPECT_EQ(zx::test::content_of(path), "somebody's own words\n");
    EXPECT_THAT(log.take(),
                ElementsAre(HasSubstr("others can write"), HasSubstr("No such file"),
                            HasSubstr("too long"), HasSubstr("Address already in use")));
}

// A child that is made by fork() has neither the thread nor the socket, and can have its own.
TEST_F(Diag, IsOffInAChild) {
    ASSERT_EQ(zxdiag_api_serve(path.c_str()), 0);
    const std::string other = folder.path() + "/other";
    EXPECT_EQ(zx::test::in_child([&] {
                  const bool is_served = zxdiag_api_serve(other.c_str()) == 0;
                  return is_served ? DiagClient(other).ask("program").substr(0, 11) : "not served";
              }),
              "{\"program\":");
    EXPECT_THAT(DiagClient(path).ask("program"), HasSubstr("\"pid\":" + std::to_string(getpid())));
}

}  // namespace
