// The C interface: filters.
#include "MediaContent/Filter.h"
#include "MediaContent/Service.h"

using platform::Guarded;

namespace {

bool IsCollation(media_content_collation_e collation) {
    return collation == MEDIA_CONTENT_COLLATE_DEFAULT || collation == MEDIA_CONTENT_COLLATE_NOCASE;
}

}  // namespace

int media_filter_create(media_filter_h* filter) {
    if (!filter) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return Guarded(__func__, [&] {
        *filter = new media_filter_s;
        return MEDIA_CONTENT_ERROR_NONE;
    });
}

int media_filter_destroy(media_filter_h filter) {
    if (!filter) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    delete filter;
    return MEDIA_CONTENT_ERROR_NONE;
}

int media_filter_set_storage(media_filter_h filter, const char* storage_id) {
    if (!filter || !storage_id || !*storage_id) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return Guarded(__func__, [&] {
        filter->storage = storage_id;
        filter->hasStorage = true;
        return MEDIA_CONTENT_ERROR_NONE;
    });
}

int media_filter_set_condition(media_filter_h filter, const char* condition,
                               media_content_collation_e collate_type) {
    if (!filter || !condition || !*condition || !IsCollation(collate_type))
        return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return Guarded(__func__, [&] {
        filter->condition = condition;
        filter->conditionCollation = collate_type;
        return MEDIA_CONTENT_ERROR_NONE;
    });
}

int media_filter_set_order(media_filter_h filter, media_content_order_e order_type,
                           const char* order_keyword, media_content_collation_e collate_type) {
    const bool known =
        order_type == MEDIA_CONTENT_ORDER_ASC || order_type == MEDIA_CONTENT_ORDER_DESC;
    if (!filter || !order_keyword || !*order_keyword || !known || !IsCollation(collate_type))
        return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return Guarded(__func__, [&] {
        filter->orderColumn = order_keyword;
        filter->order = order_type;
        filter->orderCollation = collate_type;
        return MEDIA_CONTENT_ERROR_NONE;
    });
}

int media_filter_set_offset(media_filter_h filter, int offset, int count) {
    if (!filter || offset < 0 || count < 0) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    filter->offset = offset;
    filter->count = count;
    return MEDIA_CONTENT_ERROR_NONE;
}
