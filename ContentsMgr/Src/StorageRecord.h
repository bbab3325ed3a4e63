#ifndef CONTENTS_MGR_STORAGE_RECORD_H
#define CONTENTS_MGR_STORAGE_RECORD_H

#include "CMediaStorage.h"

namespace dorn {

// Copies everything that the device reports into the record; the device id is not changed. Texts
// that cannot be read become empty, numbers 0.
void FillStorageFromDevice(CMediaStorage& storage, usb_device_s* device);

}  // namespace dorn

#endif
