#ifndef CONTENTS_MGR_C_MEDIA_CONTENT_MUSIC_H
#define CONTENTS_MGR_C_MEDIA_CONTENT_MUSIC_H

#include "CMediaContent.h"

namespace dorn {

// A music record with its audio metadata. Both setters must be called before destruction.
class CMediaContentMusic : public CMediaContent {
public:
    CMediaContentMusic();
    ~CMediaContentMusic() override;  // releases both records

    // Fetches the record's audio metadata; a failure is logged, and every getter that needs it then
    // fails with its own log line.
    void SetMusicMetaFromMediaInfo();

    char* GetMusicAlbum() const;
    char* GetMusicArtist() const;
    char* GetMusicGenre() const;
    char* GetMusicComposer() const;
    char* GetMusicCopyright() const;
    int GetMusicBitrate() const;  // bits per second
    char* GetMusicTrackNum() const;
    int GetMusicDuration() const;  // milliseconds

private:
    audio_meta_h audioMeta = nullptr;
};

}  // namespace dorn

#endif
