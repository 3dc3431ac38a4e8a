// SPDX-License-Identifier: MIT
// A stand-in for the middleware's sending side: connects to an application's
// server and sends raw inbound commands, one line of output per command.
//
//   server_inbound_send <service> <id>[:<payload hex>[:noreply]] ...
//
// prints "<id> reply <hex>" (the reply's bytes, possibly none), "<id> sent"
// for a command sent without asking for a reply, or "<id> failed".
#include "mup/mup.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{

std::vector<unsigned char> parseHex(const std::string& text)
{
    std::vector<unsigned char> bytes;
    std::string digits;
    for (char c : text) {
        if (c != ' ')
            digits += c;
    }
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: %s <service> <id>[:hex[:noreply]]...\n", argv[0]);
        return 2;
    }
    if (OXA_TVC_NewClient(argv[1]) != 0)
        return 2;

    for (int i = 2; i < argc; ++i) {
        const std::string word = argv[i];
        const size_t first = word.find(':');
        const size_t second = first == std::string::npos ? first : word.find(':', first + 1);
        const unsigned int id =
            static_cast<unsigned int>(std::stoul(word.substr(0, first), nullptr, 16));
        const std::string payload =
            first == std::string::npos ? "" : word.substr(first + 1, second - first - 1);
        const bool wantsReply = second == std::string::npos;

        MUPParam request;
        const std::vector<unsigned char> bytes = parseHex(payload);
        request.write(bytes.data(), static_cast<unsigned int>(bytes.size()));
        MUPParam reply;
        const int result = OXA_TVC_TransmitCommand(id, request, wantsReply ? &reply : nullptr, 0);
        if (result != 0) {
            printf("%08x failed\n", id);
        } else if (!wantsReply) {
            printf("%08x sent\n", id);
        } else {
            printf("%08x reply ", id);
            for (unsigned int b = 0; b < reply.size(); ++b)
                printf("%02x", reply.data()[b]);
            printf("\n");
        }
        fflush(stdout);
    }
    return 0;
}
