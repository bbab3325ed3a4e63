#include "Service/ServiceTest.h"

#include <iostream>

namespace test {

ServiceTest::~ServiceTest() {
    if (m_service) StopService();
    if (!HasFailure()) return;
    constexpr size_t kShown = 20000;
    const std::string log = LogText();
    std::cerr << "---- end of the service's log\n"
              << log.substr(log.size() > kShown ? log.size() - kShown : 0) << "----\n";
}

ServiceOptions ServiceTest::Options() const {
    ServiceOptions options;
    options.folder = m_scratch.Path();
    options.usbRoot = m_sticks.Root();
    return options;
}

void ServiceTest::StartService(const ServiceOptions& options) {
    m_service = std::make_unique<ServiceProcess>(options);
    ASSERT_TRUE(m_service->WaitUntilServing()) << LogText();
}

void ServiceTest::StopService() {
    EXPECT_TRUE(m_service->IsRunning()) << "the service ended by itself";
    EXPECT_EQ(m_service->Stop(), 0);
    m_service.reset();
    EXPECT_FALSE(std::filesystem::exists(Socket()));
}

size_t ServiceTest::Told(const std::string& text) const {
    const std::string log = LogText();
    size_t count = 0;
    for (size_t at = 0; (at = log.find(text, at)) != std::string::npos; ++at) ++count;
    return count;
}

}  // namespace test
