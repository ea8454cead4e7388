// The chat and job server, as its clients meet it.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"

namespace {

class Client {
public:
    explicit Client(const std::string& path) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() { close(fd); }
    void say(const std::string& line) { send(fd, (line + "\n").data(), line.size() + 1, 0); }
    // The next line; "" at the end.
    std::string hear() {
        std::string line;
        for (char c; read(fd, &c, 1) == 1 && c != '\n';) line += c;
        return line;
    }

private:
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

}  // namespace

TEST(Jobs, ClientsChatAndRunJobs) {
    const TestDirectory directory;
    const std::string path = directory.path + "/socket";
    Session server({{JOBS_PATH, path}});
    ASSERT_TRUE(server.sees("\n"));
    {
        Client ada(path);
        EXPECT_EQ(ada.hear(), "welcome guest1");
        Client bob(path);
        EXPECT_EQ(bob.hear(), "welcome guest2");
        EXPECT_EQ(ada.hear(), "guest2 comes");
        ada.say("name Ada");
        EXPECT_EQ(bob.hear(), "guest1 is Ada");
        bob.say("hello");
        for (const char* line : {"guest1 is Ada", "guest2: hello"}) EXPECT_EQ(ada.hear(), line);
        ada.say("run echo out; echo err >&2; exit 3");
        for (const char* line : {"[1] started", "[1] out", "[1] err", "[1] exit 3"}) {
            EXPECT_EQ(ada.hear(), line);
        }
        ada.say("run sleep 1000 & sleep 1000\nwho\nkill 2");
        for (const char* line : {"[2] started", "Ada, jobs: 1", "guest2, jobs: 0", "killed 2",
                                 "[2] ended by signal 15"}) {
            EXPECT_EQ(ada.hear(), line);
        }
        // More than a client is allowed to leave unread waits in the job.
        ada.say("run yes | head -100000");
        EXPECT_EQ(ada.hear(), "[3] started");
        int lines = 0;
        std::string line;
        while ((line = ada.hear()) == "[3] y") ++lines;
        EXPECT_EQ(lines, 100000);
        EXPECT_EQ(line, "[3] exit 0");
        ada.say("run sleep 1000");
        bob.say("quit");
        EXPECT_EQ(bob.hear(), "goodbye");
        EXPECT_EQ(bob.hear(), "");
    }
    EXPECT_EQ(server.end(SIGTERM), 0);
    EXPECT_EQ(server.until("closed\n"), "closed\n");
    EXPECT_FALSE(std::filesystem::exists(path));
}
