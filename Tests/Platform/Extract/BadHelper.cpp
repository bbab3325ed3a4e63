// Stands in for the metadata helper and misbehaves; the name it is started under says how.
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "MediaContent/Extract/Protocol.h"

namespace {

using namespace platform;

bool SendBytes(const std::string& bytes) {
    return send(HELPER_SOCKET_FD, bytes.data(), bytes.size(), MSG_NOSIGNAL) >= 0;
}

// The next request; its descriptor is dropped.
ExtractRequest Next() {
    char bytes[MAX_REQUEST];
    const ssize_t got = recv(HELPER_SOCKET_FD, bytes, sizeof bytes, 0);
    ExtractRequest request;
    if (got <= 0 || !DecodeRequest({bytes, static_cast<size_t>(got)}, request)) _exit(0);
    return request;
}

[[noreturn]] void Hang() {
    for (;;) pause();
}

void SendWithDescriptor(const std::string& bytes) {
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    iovec part = {const_cast<char*>(bytes.data()), bytes.size()};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    const int fd = STDIN_FILENO;
    std::memcpy(CMSG_DATA(header), &fd, sizeof fd);
    sendmsg(HELPER_SOCKET_FD, &message, MSG_NOSIGNAL);
}

// One request answered in the way that `how` names.
void Misbehave(const std::string& how, ExtractAnswer answer) {
    if (how == "dies") _exit(1);
    if (how == "crashes") __builtin_trap();
    if (how == "hangs") Hang();
    if (how == "garbage") SendBytes("garbage, and no answer at all");
    if (how == "empty") SendBytes("");
    if (how == "too-long") SendBytes(EncodeAnswer(answer) + std::string(MAX_ANSWER, 'x'));
    if (how == "tail") SendBytes(EncodeAnswer(answer) + "x");
    if (how == "cut") SendBytes(EncodeAnswer(answer).substr(0, 30));
    if (how == "wrong-number") {
        ++answer.number;
        SendBytes(EncodeAnswer(answer));
    }
    if (how == "unclean") {
        answer.metadata.title = "\xff";
        SendBytes(EncodeAnswer(answer));
    }
    if (how == "off-globe") {
        answer.metadata.hasPosition = true;
        answer.metadata.latitude = 91.0;
        SendBytes(EncodeAnswer(answer));
    }
    if (how == "gives-descriptor") SendWithDescriptor(EncodeAnswer(answer));
    if (how == "once") {
        SendBytes(EncodeAnswer(answer));
        _exit(0);
    }
}

}  // namespace

int main(int, char** argv) {
    const std::string path = argv[0];
    const std::string how = path.substr(path.rfind('/') + 1);
    if (how == "dies-at-start") return 1;
    if (how == "never-ready") Hang();
    SendBytes(EncodeAnswer({}));
    for (;;) {
        ExtractAnswer answer;
        answer.number = Next().number;
        answer.read = true;
        answer.metadata.title = "from the stand-in";
        Misbehave(how, std::move(answer));
    }
}
