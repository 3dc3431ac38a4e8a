/* SPDX-License-Identifier: MIT */
/**
 * @file
 * libzor: the television's voice-assistant library. Include this one header
 * (zor_transport.h is C++ only and left out of C translation units).
 */
#ifndef ZOR_ZOR_H
#define ZOR_ZOR_H

#include "zor/zor_api.h"
#include "zor/zor_audio.h"
#include "zor/zor_callbacks.h"
#include "zor/zor_types.h"
#ifdef __cplusplus
#include "zor/zor_transport.h"
#endif

#endif
