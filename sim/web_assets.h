// SPDX-License-Identifier: MIT
// The dashboard's page files, compiled into tvsim from sim/web/ (the source
// is generated at build time by sim/web/embed_assets.cmake).
#ifndef ZOR_SIM_WEB_ASSETS_H
#define ZOR_SIM_WEB_ASSETS_H

#include <cstddef>
#include <string>

namespace zor::sim
{

struct WebAsset {
    const char* path;        // "/" for index.html, else "/<file name>"
    const char* contentType; // with its charset for text
    const unsigned char* data;
    size_t size;
};

// The asset served at `path`, or null.
const WebAsset* findWebAsset(const std::string& path);

} // namespace zor::sim

#endif
