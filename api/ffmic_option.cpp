// SPDX-License-Identifier: MIT
#include "api/ffmic_option.h"

#include "base/log.h"

#include <cstdint>
#include <cstdio>
#include <memory>

namespace zor::api
{

namespace
{

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};

} // namespace

int readFFmicOptionBit(const char* path, bool* option)
{
    static const char* const kFunction = "ZOR_App_GetFFmicOptionBit";
    // "r+": a file that can't be written is a file the board did not set up.
    std::unique_ptr<FILE, FileCloser> file(fopen(path, "r+"));
    if (!file) {
        ZOR_PRINT(" %s open file %s failed!\n", kFunction, path);
        return 0;
    }
    ZOR_PRINT(" %s open file %s ok!\n", kFunction, path);

    int32_t s32OptionCode = 0;
    int result = fseek(file.get(), 0, SEEK_SET);
    if (result != 0) {
        ZOR_PRINT(" %s fseek err!\n", kFunction);
    } else {
        result = fscanf(file.get(), "%d", &s32OptionCode);
        if (result == EOF)
            ZOR_PRINT("Error, read special state failed");
        else
            ZOR_PRINT("s32OptionCode = %d\n", s32OptionCode);
    }
    file.reset();
    *option = s32OptionCode != 0;
    return result;
}

} // namespace zor::api
