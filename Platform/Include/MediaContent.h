// The media content database service, as a C interface.
//
// Conventions
//   Results      0 (MEDIA_CONTENT_ERROR_NONE) is success, anything else an error code below; on
//                failure the output is left unchanged.
//   Threads      every call may be made from any thread. Calls that read or write the database
//                block on the database only, never on a scan or on another client.
//   Connection   calls that need the database return MEDIA_CONTENT_ERROR_INVALID_OPERATION while
//                the process holds no connection.
//   Handles      the caller owns a handle returned by a _create, _clone, _get_audio/_image/_video
//   or
//                _insert_to_db call and releases it with its _destroy. A handle passed to a foreach
//                callback belongs to the service and is valid during the callback only; clone it to
//                keep it. Records are immutable: clones are cheap and may be read from any thread.
//   Text         text outputs are heap memory; the receiver frees them with free(). A value that
//                the record does not have is a null pointer with result 0. Text is UTF-8 except
//                for paths and names, which are the file system's own bytes.
#ifndef PLATFORM_MEDIA_CONTENT_H
#define PLATFORM_MEDIA_CONTENT_H

#include <stdbool.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    MEDIA_CONTENT_ERROR_NONE = 0,
    MEDIA_CONTENT_ERROR_INVALID_PARAMETER = -22,  // null, empty or malformed argument
    MEDIA_CONTENT_ERROR_OUT_OF_MEMORY = -12,
    MEDIA_CONTENT_ERROR_PERMISSION_DENIED = -13,  // no permission to read the file
    MEDIA_CONTENT_ERROR_INVALID_OPERATION =
        -1001,                                // not connected, or not applicable to this record
    MEDIA_CONTENT_ERROR_DB_FAILED = -1002,    // the database failed; see the log
    MEDIA_CONTENT_ERROR_DB_BUSY = -1003,      // timed out waiting for the database
    MEDIA_CONTENT_ERROR_NOT_FOUND = -1004,    // no such record, file or storage
    MEDIA_CONTENT_ERROR_UNSUPPORTED = -1005,  // not a file that can be listed
    MEDIA_CONTENT_ERROR_CANCELLED = -1006,    // a scan ended early: storage gone, shutting down
} media_content_error_e;

typedef enum {
    MEDIA_CONTENT_TYPE_IMAGE = 0,
    MEDIA_CONTENT_TYPE_VIDEO = 1,
    MEDIA_CONTENT_TYPE_SOUND = 2,  // short sounds and voice recordings
    MEDIA_CONTENT_TYPE_MUSIC = 3,
    MEDIA_CONTENT_TYPE_OTHERS = 4,
} media_content_type_e;

typedef enum {
    MEDIA_CONTENT_ORIENTATION_NOT_AVAILABLE = 0,
    MEDIA_CONTENT_ORIENTATION_NORMAL = 1,
    MEDIA_CONTENT_ORIENTATION_HFLIP = 2,
    MEDIA_CONTENT_ORIENTATION_ROT_180 = 3,
    MEDIA_CONTENT_ORIENTATION_VFLIP = 4,
    MEDIA_CONTENT_ORIENTATION_TRANSPOSE = 5,
    MEDIA_CONTENT_ORIENTATION_ROT_90 = 6,
    MEDIA_CONTENT_ORIENTATION_TRANSVERSE = 7,
    MEDIA_CONTENT_ORIENTATION_ROT_270 = 8,
} media_content_orientation_e;

typedef enum {
    MEDIA_CONTENT_COLLATE_DEFAULT = 0,
    MEDIA_CONTENT_COLLATE_NOCASE = 1,
} media_content_collation_e;

typedef enum {
    MEDIA_CONTENT_ORDER_ASC = 0,
    MEDIA_CONTENT_ORDER_DESC = 1,
} media_content_order_e;

typedef enum {
    MEDIA_CONTENT_ITEM_FILE = 0,
    MEDIA_CONTENT_ITEM_DIRECTORY = 1,
} media_content_db_update_item_type_e;

typedef enum {
    MEDIA_CONTENT_INSERT = 0,
    MEDIA_CONTENT_DELETE = 1,
    MEDIA_CONTENT_UPDATE = 2,
} media_content_db_update_type_e;

typedef enum {
    MEDIA_STORAGE_SCAN_STOPPED = 0,    // never scanned, or the last scan failed or was cancelled
    MEDIA_STORAGE_SCAN_PREPARING = 1,  // queued
    MEDIA_STORAGE_SCAN_RUNNING = 2,
    MEDIA_STORAGE_SCAN_COMPLETE = 3,
} media_storage_scan_status_e;

typedef struct media_info_s* media_info_h;
typedef struct media_folder_s* media_folder_h;
typedef struct media_filter_s* media_filter_h;
typedef void* media_storage_h;
typedef struct audio_meta_s* audio_meta_h;
typedef struct image_meta_s* image_meta_h;
typedef struct video_meta_s* video_meta_h;

// Called once per record, on the calling thread, inside the foreach call. Returning false ends the
// listing (which still succeeds). The callback may call the service.
typedef bool (*media_info_cb)(media_info_h media, void* user_data);
typedef bool (*media_folder_cb)(media_folder_h folder, void* user_data);
typedef bool (*media_storage_cb)(media_storage_h storage, void* user_data);

// A folder scan has ended. Called on one of the service's threads.
typedef void (*media_scan_completed_cb)(media_content_error_e error, void* user_data);

// One change to the database, on the thread that runs the default main context. `uuid`, `path` and
// `mime_type` may be null and are valid during the call only. A finished scan of a storage is
// reported as (its error, own pid, DIRECTORY, UPDATE, OTHERS, storage id, mount path, null).
typedef void (*media_content_db_updated_cb)(media_content_error_e error, int pid,
                                            media_content_db_update_item_type_e update_item,
                                            media_content_db_update_type_e update_type,
                                            media_content_type_e media_type, char* uuid, char* path,
                                            char* mime_type, void* user_data);

// ---- connection -------------------------------------------------------------------------------

// The first connection of the process opens the database; later ones are only counted. DB_FAILED
// when the database can be neither opened nor recreated.
int media_content_connect(void);

// Releases one connection; INVALID_OPERATION when there is none. Releasing the last one closes the
// database: running scans are cancelled and resume at the next connection.
int media_content_disconnect(void);

// Requests a scan of one folder of a mounted storage and returns at once. When the result is 0,
// `callback` is called exactly once, even if the scan fails or is cancelled; otherwise never.
// NOT_FOUND for a folder that does not exist or is in no mounted storage.
int media_content_scan_folder(const char* path, bool is_recursive, media_scan_completed_cb callback,
                              void* user_data);

// Adds a receiver of database changes. A receiver is identified by the pair of callback and user
// data: added twice, it is still called once per change. Receivers are never removed, so both must
// stay valid for the life of the process. INVALID_PARAMETER for a null callback.
int media_content_set_db_updated_cb(media_content_db_updated_cb callback, void* user_data);

// ---- filters ----------------------------------------------------------------------------------

// A filter is used by one thread at a time. Setters replace the previous value.
int media_filter_create(media_filter_h* filter);
int media_filter_destroy(media_filter_h filter);  // INVALID_PARAMETER for null

// Limits listings and counts to one storage. The id is copied and need not exist.
int media_filter_set_storage(media_filter_h filter, const char* storage_id);

// A condition over named columns, joined with AND, OR, NOT and parentheses:
//   items    MEDIA_ID MEDIA_TYPE MEDIA_PATH MEDIA_DISPLAY_NAME MEDIA_MIME_TYPE MEDIA_SIZE
//            MEDIA_ADDED_TIME MEDIA_MODIFIED_TIME MEDIA_TITLE MEDIA_ALBUM MEDIA_ARTIST
//            MEDIA_GENRE MEDIA_COMPOSER MEDIA_WIDTH MEDIA_HEIGHT MEDIA_LATITUDE MEDIA_LONGITUDE
//   folders  FOLDER_ID FOLDER_PATH FOLDER_NAME FOLDER_STORAGE_TYPE (1: external storage)
// The text is checked when it is used, not here; a malformed condition makes the listing or count
// fail with INVALID_PARAMETER.
int media_filter_set_condition(media_filter_h filter, const char* condition,
                               media_content_collation_e collate_type);

// Sorts listings by one of the columns above. Records that compare equal are sorted by the order in
// which they were added (descending: newest first), so the order is total.
int media_filter_set_order(media_filter_h filter, media_content_order_e order_type,
                           const char* order_keyword, media_content_collation_e collate_type);

// The range of a listing: `count` records starting at `offset`. Counts ignore it. INVALID_PARAMETER
// for a negative offset or count.
int media_filter_set_offset(media_filter_h filter, int offset, int count);

// ---- items ------------------------------------------------------------------------------------

// Null filter: all items of all present storages.
int media_info_get_media_count_from_db(media_filter_h filter, int* media_count);
int media_info_foreach_media_from_db(media_filter_h filter, media_info_cb callback,
                                     void* user_data);

// Adds the file at `path`, or rereads it if it is already known, and returns its record. NOT_FOUND:
// no such file, or in no mounted storage, or reached through a link that leaves it. UNSUPPORTED:
// not a regular file. Blocks while the file's metadata is read.
int media_info_insert_to_db(const char* path, media_info_h* media);

// Removes one record, never its file. NOT_FOUND when no record has that id.
int media_info_delete_from_db(const char* media_id);

int media_info_clone(media_info_h* dst, media_info_h src);
int media_info_destroy(media_info_h media);

int media_info_get_media_id(media_info_h media, char** media_id);
int media_info_get_file_path(media_info_h media, char** path);
int media_info_get_display_name(media_info_h media, char** name);
int media_info_get_media_type(media_info_h media, media_content_type_e* type);
int media_info_get_mime_type(media_info_h media, char** mime_type);
int media_info_get_size(media_info_h media, unsigned long long* size);        // bytes
int media_info_get_added_time(media_info_h media, time_t* added_time);        // seconds, UTC
int media_info_get_modified_time(media_info_h media, time_t* modified_time);  // seconds, UTC
int media_info_get_thumbnail_path(media_info_h media, char** path);
int media_info_get_description(media_info_h media, char** description);
int media_info_get_title(media_info_h media, char** title);
int media_info_get_rating(media_info_h media, int* rating);           // 0 to 10
int media_info_get_latitude(media_info_h media, double* latitude);    // degrees, 0.0 when unknown
int media_info_get_longitude(media_info_h media, double* longitude);  // degrees, 0.0 when unknown

// The metadata record for the item's kind. INVALID_OPERATION when the item is of another kind.
int media_info_get_audio(media_info_h media, audio_meta_h* audio);
int media_info_get_image(media_info_h media, image_meta_h* image);
int media_info_get_video(media_info_h media, video_meta_h* video);

int audio_meta_destroy(audio_meta_h audio);
int audio_meta_get_album(audio_meta_h audio, char** album);
int audio_meta_get_artist(audio_meta_h audio, char** artist);
int audio_meta_get_genre(audio_meta_h audio, char** genre);
int audio_meta_get_composer(audio_meta_h audio, char** composer);
int audio_meta_get_copyright(audio_meta_h audio, char** copyright);
int audio_meta_get_track_num(audio_meta_h audio, char** track_num);
int audio_meta_get_bit_rate(audio_meta_h audio, int* bit_rate);  // bits per second
int audio_meta_get_duration(audio_meta_h audio, int* duration);  // milliseconds

int image_meta_destroy(image_meta_h image);
int image_meta_get_width(image_meta_h image, int* width);    // pixels, before orientation
int image_meta_get_height(image_meta_h image, int* height);  // pixels, before orientation
int image_meta_get_orientation(image_meta_h image, media_content_orientation_e* orientation);

int video_meta_destroy(video_meta_h video);
int video_meta_get_duration(video_meta_h video, int* duration);  // milliseconds
int video_meta_get_width(video_meta_h video, int* width);        // pixels
int video_meta_get_height(video_meta_h video, int* height);      // pixels
int video_meta_get_album(video_meta_h video, char** album);
int video_meta_get_genre(video_meta_h video, char** genre);

// ---- folders ----------------------------------------------------------------------------------

// Folders that contain, directly or further down, items of present storages.
int media_folder_foreach_folder_from_db(media_filter_h filter, media_folder_cb callback,
                                        void* user_data);

// Items directly in the folder. An unknown or empty folder id lists nothing and counts 0.
int media_folder_get_media_count_from_db(const char* folder_id, media_filter_h filter, int* count);
int media_folder_foreach_media_from_db(const char* folder_id, media_filter_h filter,
                                       media_info_cb callback, void* user_data);

int media_folder_clone(media_folder_h* dst, media_folder_h src);
int media_folder_destroy(media_folder_h folder);
int media_folder_get_folder_id(media_folder_h folder, char** folder_id);
int media_folder_get_path(media_folder_h folder, char** path);

// ---- storages ---------------------------------------------------------------------------------

// Storages that are present, in the order in which they were first seen. Only the filter's range is
// used.
int media_storage_foreach_storage_from_db(media_filter_h filter, media_storage_cb callback,
                                          void* user_data);
int media_storage_clone(media_storage_h* dst, media_storage_h src);
int media_storage_destroy(media_storage_h storage);
int media_storage_get_storage_id(media_storage_h storage, char** storage_id);
int media_storage_get_path(media_storage_h storage, char** path);  // the mount path
// NOT_FOUND for a storage that is not present.
int media_storage_get_scan_status(const char* storage_id, media_storage_scan_status_e* status);

#ifdef __cplusplus
}
#endif

#endif
