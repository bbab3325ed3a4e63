// The initialisation of each metadata library, called by InitMetadataReaders.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_READER_SETUP_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_READER_SETUP_H

namespace platform {

void InitExiv();
void InitTagLib();
void InitAvformat();

}  // namespace platform

#endif
