// A client that decides byte by byte what it sends and whether it reads at all.
#ifndef TESTS_SERVICE_RAW_CLIENT_H
#define TESTS_SERVICE_RAW_CLIENT_H

#include <gio/gio.h>

#include <string>

namespace test {

// Any thread, one at a time. The constructor throws std::runtime_error when it cannot connect.
class RawClient {
public:
    explicit RawClient(const std::string& socketPath);
    ~RawClient();
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    // Speaks the authentication; false when it is refused.
    bool Authenticate();

    // Sends one method call of the service's object, or gives its bytes; consumes `parameters`.
    void Call(const char* method, GVariant* parameters) { Write(Message(method, parameters)); }
    std::string Message(const char* method, GVariant* parameters);
    // Opens a handle and returns it; -1 for an error or the end.
    int Open();
    // Sends that command of the handle.
    void Execute(int handle, const char* command, const char* arg1 = "", const char* arg2 = "",
                 const char* arg3 = "", const char* arg4 = "");
    void Write(const std::string& bytes);
    // Reads until the other end closes; true when it does before the deadline.
    bool ReadToEnd();

private:
    int ReadHandle();
    std::string ReadLine();
    bool ReadExactly(void* to, size_t size);

    int m_socket;
    unsigned m_serial = 0;
};

}  // namespace test

#endif
