// Tests of what only the POSIX build has: pipe names mapped to socket files,
// and the files' life cycle.
#include "imc/pipe_server.h"

#include "imc/channel_test_util.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace ovtest;

// Sets OV_PIPE_DIR for one test and restores the private directory after it.
class PipeDir {
  public:
    explicit PipeDir(const char *dir) {
        UsePrivatePipeDir();
        saved_ = std::getenv("OV_PIPE_DIR");
        dir == nullptr ? unsetenv("OV_PIPE_DIR") : setenv("OV_PIPE_DIR", dir, 1);
    }
    ~PipeDir() { setenv("OV_PIPE_DIR", saved_.c_str(), 1); }

  private:
    std::string saved_;
};

std::string PathOf(const wchar_t *name) {
    char out[108];
    return OV_ImcPipePath(name, out, sizeof out) == 0 ? std::string(out) : std::string("-");
}

TEST(ImcPipePosixPath, MapsPipeNamesIntoThePipeDirectory) {
    {
        PipeDir dir(nullptr);
        EXPECT_EQ(PathOf(OV_IMC_CONF_PIPE_NAME), "/run/orvane/imc_config_pipe");
    }
    PipeDir dir("/tmp/d");
    EXPECT_EQ(PathOf(OV_IMC_CONF_PIPE_NAME), "/tmp/d/imc_config_pipe");
    EXPECT_EQ(PathOf(L"\\\\.\\PIPE\\x"), "/tmp/d/x");
    EXPECT_EQ(PathOf(L"\\\\.\\pipe\\caf\u00e9"), "/tmp/d/caf\xc3\xa9");
    EXPECT_EQ(PathOf(L"\\\\.\\pipe\\\u20ac\U0001F600"), "/tmp/d/\xe2\x82\xac\xf0\x9f\x98\x80");
    for (const wchar_t *bad :
         {L"imc_config_pipe", L"\\\\.\\pipe\\", L"\\\\.\\pipe\\..", L"\\\\.\\pipe\\a/b"}) {
        EXPECT_EQ(PathOf(bad), "-");
    }
    // "/tmp/d/" and 100 characters fill the 108 bytes with the NUL; one more does not fit.
    std::wstring longName = L"\\\\.\\pipe\\" + std::wstring(100, L'n');
    EXPECT_EQ(PathOf(longName.c_str()).size(), 107u);
    EXPECT_EQ(PathOf((longName + L"n").c_str()), "-");
}

// The lowest free descriptor: one leaked below it moves it.
int LowestFreeFd() {
    int fd = open("/dev/null", O_RDONLY);
    close(fd);
    return fd;
}

class ImcPipePosixTest : public testing::Test {
  protected:
    void SetUp() override {
        ovtest::UsePrivatePipeDir();
        name_ = UniquePipeName("file");
        char path[108];
        ASSERT_EQ(OV_ImcPipePath(name_.c_str(), path, sizeof path), 0);
        path_ = path;
    }

    /// Leaves a socket file behind that nobody listens on, as a crash would.
    void MakeStaleSocket() {
        int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        path_.copy(addr.sun_path, sizeof addr.sun_path - 1);
        ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr), 0);
        close(fd);
    }

    std::wstring name_;
    std::string path_;
};

TEST_F(ImcPipePosixTest, StaleSocketIsNoServerAndIsReplaced) {
    MakeStaleSocket();
    OV_PipeHandle h = OV_INVALID_PIPE_HANDLE;
    StdoutCapture capture;
    const int lowest = LowestFreeFd();
    EXPECT_EQ(OV_ImcConnect(name_.c_str(), 0, &h), -2);
    EXPECT_EQ(LowestFreeFd(), lowest) << "the refused socket is closed";
    ExpectLine(capture.Take(), "<Error>", "OV_ImcConnect", "Fail to connect pipe! error code=2");
    OV_PipeServer *server = nullptr;
    ASSERT_EQ(OV_PipeServerCreate(name_.c_str(), 3, &server), 0);
    EXPECT_EQ(OV_ImcConnect(name_.c_str(), 0, &h), 0);
    // An agent started without stdin gets descriptor 0 for its first client.
    const int stdinFd = dup(0);
    close(0);
    OV_PipeConn *conn = nullptr;
    EXPECT_EQ(OV_PipeServerAccept(server, 1000, &conn), 0);
    OV_PipeConnClose(conn);
    dup2(stdinFd, 0);
    close(stdinFd);
    OV_ImcClose(h);
    OV_PipeServerDestroy(server);
}

TEST_F(ImcPipePosixTest, LeavesAFileThatIsNoSocketAlone) {
    FILE *f = std::fopen(path_.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fclose(f);
    OV_PipeServer *server = nullptr;
    StdoutCapture capture;
    EXPECT_EQ(OV_PipeServerCreate(name_.c_str(), 3, &server), -17);
    ExpectLine(capture.Take(), "<Error>", "OV_PipeServerCreate",
               "Pipe " + path_ + " is already owned by another server");
    EXPECT_EQ(access(path_.c_str(), F_OK), 0);
    unlink(path_.c_str());
}

TEST_F(ImcPipePosixTest, SocketFileIsPrivateAndRemovedOnDestroy) {
    std::string dir = path_.substr(0, path_.rfind('/')) + "/sub";
    PipeDir sub(dir.c_str());
    char path[108];
    ASSERT_EQ(OV_ImcPipePath(name_.c_str(), path, sizeof path), 0);
    OV_PipeServer *server = nullptr;
    ASSERT_EQ(OV_PipeServerCreate(name_.c_str(), 3, &server), 0);
    struct stat st {};
    ASSERT_EQ(stat(dir.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0700u);
    ASSERT_EQ(stat(path, &st), 0);
    EXPECT_TRUE(S_ISSOCK(st.st_mode));
    EXPECT_EQ(st.st_mode & 07777, 0660u);
    OV_PipeServerDestroy(server);
    EXPECT_NE(stat(path, &st), 0);
    rmdir(dir.c_str());
}

// One instance, one client queued: an accept that fails for want of a
// descriptor gives the instance back, and the client that had to wait for
// room gets a handle that never blocks (a stalled agent times out, never hangs).
TEST_F(ImcPipePosixTest, FailedAcceptFreesItsInstanceAndWaitedClientNeverBlocks) {
    OV_PipeServer *server = nullptr;
    ASSERT_EQ(OV_PipeServerCreate(name_.c_str(), 1, &server), 0);
    OV_PipeHandle queued = OV_INVALID_PIPE_HANDLE;
    OV_PipeHandle waited = OV_INVALID_PIPE_HANDLE;
    ASSERT_EQ(OV_ImcConnect(name_.c_str(), 0, &queued), 0);
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
    rlimit low = saved;
    low.rlim_cur = 64;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    std::vector<int> fill;
    for (int fd; (fd = dup(static_cast<int>(queued))) >= 0;) {
        fill.push_back(fd);
    }
    OV_PipeConn *conn = nullptr;
    int32_t rc = OV_PipeServerAccept(server, 1000, &conn);
    for (int fd : fill) {
        close(fd);
    }
    setrlimit(RLIMIT_NOFILE, &saved);
    EXPECT_EQ(rc, -24);
    std::thread taker([&] {
        OV_SleepMs(100);
        rc = OV_PipeServerAccept(server, 1000, &conn);
    });
    EXPECT_EQ(OV_ImcConnect(name_.c_str(), 0, &waited), 0);
    taker.join();
    ASSERT_EQ(rc, 0);
    EXPECT_NE(fcntl(static_cast<int>(waited), F_GETFL) & O_NONBLOCK, 0);
    OV_PipeConnClose(conn);
    OV_ImcClose(queued);
    OV_ImcClose(waited);
    OV_PipeServerDestroy(server);
}

} // namespace
