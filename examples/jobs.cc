// A chat and job server on a Unix socket: jobs SOCKET. A client sends lines:
//
//     name NAME        is called so from now on
//     run COMMAND      runs the shell's command; its lines come back as "[1] ..."
//     kill NUMBER      ends a job
//     who              lists clients and jobs
//     quit             says goodbye
//
// Every other line goes to all other clients. SIGTERM and SIGINT end the server and
// its jobs. It has no helper for sockets: fxReadNotifier takes the one that listens,
// fxLineReader and fxLineWriter take those that are accepted.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "fxds/fxds.h"

class Client;

class Server : public fxApplication {
public:
    // Adopts the socket, which listens.
    explicit Server(int socket) : stop(SIGTERM), interrupt(SIGINT), listener(socket) {
        fxConnect(listener.readable(), this, [this] { accept(); });
        fxConnect(stop.signal(), this, [this](int) { close(); });
        fxConnect(interrupt.signal(), this, [this](int) { close(); });
    }
    const char* className() const override { return "Server"; }
    void initialize(int, char**) override {}
    void close() override;

    // Destroys the client at the end of the turn: it may be on the stack.
    void drop(int id) {
        ending.post([this, id] { clients.erase(id); });
    }
    void tellAll(const std::string& text, const Client* except);
    void who(Client& to) const;
    int nextJob = 1;

private:
    void accept();
    void welcome(int socket);

    std::map<int, std::unique_ptr<Client>> clients;
    int nextClient = 1;
    fxSignal stop, interrupt;
    fxReadNotifier listener;
    fxPostQueue ending;
};

class Client : public fxObj {
public:
    Client(Server& server_, int id_, int socket)
        : server(server_), id(id_), reader(socket, 4096), writer(reader) {
        name = "guest" + std::to_string(id);
        fxConnect(reader.line(), this, [this](const std::string& line) { obey(line); });
        fxConnect(reader.end(), this, [this](int) { leave(); });
        fxConnect(writer.end(), this, [this](int) { leave(); });
        fxConnect(writer.drained(), this, [this] {
            for (const auto& [number, job] : jobs) job->output()->resume();
        });
    }
    const char* className() const override { return "Client"; }

    // A client that does not read is dropped before its lines take much memory.
    void tell(const std::string& text) {
        if (writer.isFull()) return leave();
        writer.writeLine(text);
    }
    std::string name;
    size_t jobCount() const { return jobs.size(); }

private:
    void obey(const std::string& line) {
        const size_t space = line.find(' ');
        const std::string word = line.substr(0, space);
        const std::string rest = space == std::string::npos ? "" : line.substr(space + 1);
        if (word == "name" && !rest.empty()) {
            server.tellAll(name + " is " + rest, nullptr);
            name = rest;
        } else if (word == "run" && !rest.empty()) {
            run(rest);
        } else if (word == "kill") {
            const auto job = jobs.find(std::atoi(rest.c_str()));
            tell(job != jobs.end() && job->second->kill() ? "killed " + rest : "no job " + rest);
        } else if (word == "who") {
            server.who(*this);
        } else if (word == "quit") {
            tell("goodbye");
            reader.pause();
            writer.finish();
        } else {
            server.tellAll(name + ": " + line, this);
        }
    }

    void run(const std::string& text) {
        fxCommand command({"sh", "-c", text.c_str()});
        command.input = fxCommand::none;
        command.output = fxCommand::piped;
        command.errors = fxCommand::joined;
        command.ownGroup = true;
        const int number = server.nextJob++;
        const std::string tag = "[" + std::to_string(number) + "] ";
        auto job = std::make_unique<fxProcess>(command);
        if (!job->isRunning()) return tell(tag + std::strerror(job->getError()));
        fxLineReader* const lines = job->output();
        fxConnect(lines->line(), this, [this, tag, lines](const std::string& line) {
            writer.writeLine(tag + line);
            if (writer.isFull()) lines->pause();
        });
        fxConnect(lines->end(), this, [this, number](int) { end(number); });
        fxConnect(job->exited(), this, [this, number](int) { end(number); });
        jobs[number] = std::move(job);
        tell(tag + "started");
    }

    // A job is over when the shell has ended and all of its output has arrived.
    void end(int number) {
        const fxProcess& job = *jobs[number];
        if (job.isRunning() || !job.output()->isAtEnd()) return;
        const int status = job.getStatus();
        tell("[" + std::to_string(number) + "] " +
             (status < 0 ? "ended by signal " + std::to_string(-status)
                         : "exit " + std::to_string(status)));
        jobs.erase(number);
    }

    void leave() {
        if (!isLeaving) server.drop(id);
        isLeaving = true;
        reader.pause();
    }

    Server& server;
    const int id;
    bool isLeaving = false;
    fxLineReader reader;
    fxLineWriter writer;
    std::map<int, std::unique_ptr<fxProcess>> jobs;
};

void Server::accept() {
    const int socket = accept4(listener.getFd(), nullptr, nullptr, SOCK_CLOEXEC);
    if (socket >= 0) welcome(socket);
}

void Server::welcome(int socket) {
    const int id = nextClient++;
    auto client = std::make_unique<Client>(*this, id, socket);
    client->tell("welcome " + client->name);
    tellAll(client->name + " comes", nullptr);
    clients[id] = std::move(client);
}

void Server::tellAll(const std::string& text, const Client* except) {
    for (const auto& [id, client] : clients) {
        if (client.get() != except) client->tell(text);
    }
}

void Server::who(Client& to) const {
    for (const auto& [id, client] : clients) {
        to.tell(client->name + ", jobs: " + std::to_string(client->jobCount()));
    }
}

// Objects may be on the stack here, so they are destroyed with the program.
void Server::close() {
    fxApplication::close();
    std::puts("closed");
}

int main(int argc, char** argv) {
    fxInitializeToolkit();
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (argc != 2 || std::strlen(argv[1]) >= sizeof address.sun_path) {
        std::fputs("usage: jobs SOCKET\n", stderr);
        return 2;
    }
    std::strcpy(address.sun_path, argv[1]);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    unlink(argv[1]);
    if (bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(socket, 64) != 0) {
        std::perror(argv[1]);
        return 1;
    }
    {
        Server server(socket);
        fx_theExecutive->initialize(argc, argv);
        fx_theExecutive->open();
        std::puts("listening");
        std::fflush(stdout);
        fx_theExecutive->loop();
    }
    unlink(argv[1]);
}
