#include "MediaContent/Store.h"

#include "MediaContent/Schema.h"
#include "MediaContent/Writer.h"

namespace platform {
namespace {

constexpr size_t kMaxIdleReaders = 4;

}  // namespace

Store::Store(const std::string& file)
    : m_file(file),
      m_writer(std::make_unique<Writer>(OpenWriter(file))),
      m_salt(m_writer->Salt()) {}

Store::~Store() = default;

std::unique_ptr<Connection> Store::Take() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_idle.empty()) {
            auto connection = std::move(m_idle.back());
            m_idle.pop_back();
            return connection;
        }
    }
    return OpenReader(m_file);
}

void Store::GiveBack(std::unique_ptr<Connection> connection) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_idle.size() < kMaxIdleReaders) m_idle.push_back(std::move(connection));
}

int64_t Store::Number(const std::string& id, const char* separator) const {
    const std::string prefix = m_salt + separator;
    if (id.compare(0, prefix.size(), prefix) != 0) return 0;
    const std::string digits = id.substr(prefix.size());
    if (digits.empty() || digits.size() > 18 || digits[0] == '0') return 0;
    if (digits.find_first_not_of("0123456789") != std::string::npos) return 0;
    return std::stoll(digits);
}

}  // namespace platform
