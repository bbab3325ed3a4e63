#include "Encoders.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <future>

extern char** environ;

namespace samples {
namespace {

void Append(Words& words, const Words& more) {
    words.insert(words.end(), more.begin(), more.end());
}

// True when the program succeeded. Its messages go to our standard error.
bool Run(const Words& command) {
    std::vector<char*> arguments;
    for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    pid_t pid = 0;
    const int error =
        posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error) {
        std::fprintf(stderr, "%s: %s\n", arguments[0], std::strerror(error));
        return false;
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool Make(const Encoding& encoding) {
    if (Run(encoding.command)) return true;
    std::fprintf(stderr, "left out: %s\n", encoding.path.c_str());
    unlink(encoding.path.c_str());
    return false;
}

}  // namespace

Encoding Ffmpeg(const std::string& path, const std::string& picture, const std::string& sound,
                const Words& options, const Words& tags) {
    Words command = {"ffmpeg", "-nostdin", "-v", "error", "-y"};
    for (const std::string& source : {picture, sound}) {
        if (!source.empty()) Append(command, {"-f", "lavfi", "-i", source});
    }
    Append(command, {"-threads", "1", "-map_metadata", "-1", "-fflags", "+bitexact", "-flags:v",
                     "+bitexact", "-flags:a", "+bitexact"});
    Append(command, options);
    for (const std::string& tag : tags) Append(command, {"-metadata", tag});
    // The prefix makes ffmpeg take a path with a leading dash or a colon as a file.
    command.push_back("file:" + path);
    return {path, command};
}

Encoding HeifEnc(const std::string& path, const std::string& jpeg) {
    return {path, {"heif-enc", "-q", "40", "-o", path, jpeg}};
}

int Encode(const std::vector<Encoding>& encodings) {
    std::atomic<size_t> next{0};
    std::atomic<int> leftOut{0};
    const auto work = [&] {
        for (size_t i = next++; i < encodings.size(); i = next++) {
            if (!Make(encodings[i])) ++leftOut;
        }
    };
    std::future<void> other = std::async(std::launch::async, work);
    work();
    other.get();
    return leftOut;
}

}  // namespace samples
