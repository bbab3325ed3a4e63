#include "SemphoreCM.h"

SemphoreCM::~SemphoreCM() {
    g_cond_clear(&m_condition);
    g_mutex_clear(&m_mutex);
}
