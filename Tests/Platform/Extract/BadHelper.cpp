// Stands in for the metadata helper and misbehaves; the name it is started under says how.
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "MediaContent/Extract/Protocol.h"

namespace {

using namespace platform;

bool SendBytes(const std::string& bytes) {
    return send(kHelperSocketFd, bytes.data(), bytes.size(), MSG_NOSIGNAL) >= 0;
}

// The next request; its descriptor is dropped.
ExtractRequest Next() {
    char bytes[kMaxRequest];
    const ssize_t got = recv(kHelperSocketFd, bytes, sizeof bytes, 0);
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
    sendmsg(kHelperSocketFd, &message, MSG_NOSIGNAL);
}

std::string Answer(uint32_t number, const Metadata& metadata) {
    AnswerEncoder encoder(number);
    encoder.Add(true, metadata);
    return encoder.Take(false);
}

// Answers file by file, each in a message of its own, and one more.
void AnswerTooOften(const ExtractRequest& request, const std::string& answer) {
    for (size_t i = 0; i <= request.files.size(); ++i) SendBytes(answer);
}

// Hangs at any request with a file of 13 bytes, and answers the others.
void AnswerUnlessUnlucky(const ExtractRequest& request, const std::string& answer) {
    for (const ExtractRequest::File& file : request.files)
        if (file.size == 13) Hang();
    for (size_t i = 0; i < request.files.size(); ++i) SendBytes(answer);
}

// One request answered in the way that `how` names.
void Misbehave(const std::string& how, const ExtractRequest& request) {
    Metadata metadata;
    metadata.title = "from the stand-in";
    const std::string good = Answer(request.number, metadata);
    if (how == "dies") _exit(1);
    if (how == "crashes") __builtin_trap();
    if (how == "hangs") Hang();
    if (how == "garbage") SendBytes("garbage, and no answer at all");
    if (how == "empty") SendBytes("");
    if (how == "no-files") SendBytes(AnswerEncoder(request.number).Take(false));
    if (how == "too-long") SendBytes(good + std::string(kMaxAnswer, 'x'));
    if (how == "tail") SendBytes(good + "x");
    if (how == "cut") SendBytes(good.substr(0, 30));
    if (how == "wrong-number") SendBytes(Answer(request.number + 1, metadata));
    if (how == "too-often") AnswerTooOften(request, good);
    if (how == "hangs-at-13-bytes") AnswerUnlessUnlucky(request, good);
    if (how == "gives-descriptor") SendWithDescriptor(good);
    if (how == "unclean") {
        metadata.title = "\xff";
        SendBytes(Answer(request.number, metadata));
    }
    if (how == "once") {
        SendBytes(good);
        _exit(0);
    }
}

}  // namespace

int main(int, char** argv) {
    const std::string path = argv[0];
    const std::string how = path.substr(path.rfind('/') + 1);
    if (how == "dies-at-start") return 1;
    if (how == "never-ready") Hang();
    SendBytes(AnswerEncoder(0).Take(false));
    for (;;) Misbehave(how, Next());
}
