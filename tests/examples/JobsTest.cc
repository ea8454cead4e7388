// The chat and job server, as its clients meet it.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <csignal>

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
    int output[2];
    ASSERT_EQ(pipe2(output, O_CLOEXEC), 0);
    const pid_t server = start({{JOBS_PATH, path}, ".", {}, {-1, output[1], -1}});
    close(output[1]);
    char listening[10];
    ASSERT_EQ(read(output[0], listening, sizeof listening), 10);
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
        ada.say("run sleep 1000 & sleep 1000");
        EXPECT_EQ(ada.hear(), "[2] started");
        bob.say("kill 2");
        EXPECT_EQ(bob.hear(), "no job 2");
        ada.say("who\nkill 2");
        for (const char* line :
             {"Ada, jobs: 1", "guest2, jobs: 0", "killed 2", "[2] ended by signal 15"}) {
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
    kill(server, SIGTERM);
    EXPECT_EQ(readAll(output[0]), "closed\n");
    int end = -1;
    EXPECT_EQ(waitpid(server, &end, 0), server);
    EXPECT_EQ(end, 0);
    EXPECT_FALSE(std::filesystem::exists(path));
    close(output[0]);
}
