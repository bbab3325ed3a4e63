#include "CMediaContentMusic.h"

#include "PlatformGetter.h"

namespace dorn {

CMediaContentMusic::CMediaContentMusic() = default;

CMediaContentMusic::~CMediaContentMusic() {
    audio_meta_destroy(audioMeta);
    media_info_destroy(mediaInfo);
}

void CMediaContentMusic::SetMusicMetaFromMediaInfo() {
    if (media_info_get_audio(mediaInfo, &audioMeta) != 0)
        CM_TRACE("CMediaContentMusic - failed to media_info_get_audio");
}

CM_GETTER(char*, CMediaContentMusic, GetMusicAlbum, nullptr, audio_meta_get_album, audioMeta,
          "CMediaContentMusic - failed to audio_meta_get_album")
CM_GETTER(char*, CMediaContentMusic, GetMusicArtist, nullptr, audio_meta_get_artist, audioMeta,
          "CMediaContentMusic - failed to audio_meta_get_artist")
CM_GETTER(char*, CMediaContentMusic, GetMusicGenre, nullptr, audio_meta_get_genre, audioMeta,
          "CMediaContentMusic - failed to audio_meta_get_genre")
CM_GETTER(char*, CMediaContentMusic, GetMusicComposer, nullptr, audio_meta_get_composer, audioMeta,
          "CMediaContentMusic - failed to audio_meta_get_composer")
CM_GETTER(char*, CMediaContentMusic, GetMusicCopyright, nullptr, audio_meta_get_copyright,
          audioMeta, "CMediaContentMusic - failed to audio_meta_get_copyright")
CM_GETTER(int, CMediaContentMusic, GetMusicBitrate, 0, audio_meta_get_bit_rate, audioMeta,
          "CMediaContentMusic - failed to audio_meta_get_bit_rate")
CM_GETTER(char*, CMediaContentMusic, GetMusicTrackNum, nullptr, audio_meta_get_track_num, audioMeta,
          "CMediaContentMusic - failed to audio_meta_get_track_num")
CM_GETTER(int, CMediaContentMusic, GetMusicDuration, 0, audio_meta_get_duration, audioMeta,
          "CMediaContentMusic - failed to GetMusicDuration")

}  // namespace dorn
