// What clients see: the bus name, the object, its interface and its errors.
#ifndef PLATFORM_PLIV_HOST_NAMES_H
#define PLATFORM_PLIV_HOST_NAMES_H

#include <cstddef>

namespace platform {

// The size limit of one incoming call. Ten thousand paths of typical length fit; GDBus keeps a
// buffer of the largest message's size for as long as the connection lives.
constexpr size_t kMaxCallBytes = size_t{1} << 20;

constexpr char kBusName[] = "dorn.ContentsMgr";
constexpr char kObjectPath[] = "/dorn/PlivHost";
constexpr char kInterface[] = "dorn.PlivHost1";

constexpr char kErrorUnknownHandle[] = "dorn.PlivHost1.Error.UnknownHandle";
constexpr char kErrorLimitReached[] = "dorn.PlivHost1.Error.LimitReached";
constexpr char kErrorOpenFailed[] = "dorn.PlivHost1.Error.OpenFailed";
constexpr char kErrorCommandFailed[] = "dorn.PlivHost1.Error.CommandFailed";
constexpr char kErrorClosing[] = "dorn.PlivHost1.Error.Closing";

constexpr char kLogTag[] = "PLIV_HOST";

}  // namespace platform

#endif
