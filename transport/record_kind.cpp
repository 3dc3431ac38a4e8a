// SPDX-License-Identifier: MIT
#include "transport/record_kind.h"

#include "transport/record_layout.h"
#include "zor/zor_types.h"

namespace zor::wire
{

static_assert(offsetof(ListHolder, items) == offsetof(_VOICECTRL_CHANNEL_LIST, pstChanelInfo));
static_assert(offsetof(ListHolder, count) == offsetof(_VOICECTRL_CHANNEL_LIST, u32ChanelNum));
static_assert(offsetof(ListHolder, items) == offsetof(_VOICECTRL_SOURCE_LIST, pSourceList));
static_assert(offsetof(ListHolder, count) == offsetof(_VOICECTRL_SOURCE_LIST, u32SourceNum));
static_assert(sizeof(ListHolder) == sizeof(_VOICECTRL_CHANNEL_LIST));

size_t recordSize(RecordKind kind)
{
    const RecordLayout* layout = recordLayout(kind);
    return layout ? layout->size : 0;
}

} // namespace zor::wire
