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

    // Sends one method call of the service's object, consuming `parameters`.
    void Call(const char* method, GVariant* parameters);
    // Reads one message and returns its first integer; -1 for an error or the end.
    int ReadHandle();
    void Write(const std::string& bytes);
    // Reads until the other end closes; true when it does before the deadline.
    bool ReadToEnd();

private:
    std::string ReadLine();
    bool ReadExactly(void* to, size_t size);

    int m_socket;
    unsigned m_serial = 0;
};

}  // namespace test

#endif
