/* SPDX-License-Identifier: MIT */
/**
 * @file
 * libmup: the messaging layer between the assistant library and the television
 * middleware. Processes talk over Unix domain sockets, one socket per service
 * name, in a private runtime directory:
 *
 *   $ZOR_RUNTIME_DIR when set and not empty (an absolute path, used alone:
 *   when it can't be made or trusted nothing else is tried), else /run/zor when
 *   it can be created, else $XDG_RUNTIME_DIR/zor, else `/tmp/zor-<uid>`.
 *
 * Who may talk to whom:
 *  - The runtime directory and every directory above it must belong to this
 *    user or root, and one that group or others may write to must carry the
 *    sticky bit (as /tmp does), so that no one else can rename or replace a
 *    socket in it. Otherwise one line on stderr says why, and nothing is
 *    served or sent. The directories this layer makes are mode 0700; an
 *    override that exists keeps its mode.
 *  - A server serves only peers of its own uid and root (SO_PEERCRED when a
 *    peer connects); its socket is 0600. A server run by root serves every
 *    uid and its socket is 0666: the middleware, as root, serves the
 *    applications, and the directory decides who can reach it.
 *  - Before the first byte of a request leaves, the client checks who serves
 *    the socket (SO_PEERCRED): its own uid or root, else a line on stderr and
 *    -1. A client run by root may reach a server of any uid.
 *  - The middleware as root and the applications as another user meet in one
 *    ZOR_RUNTIME_DIR owned by root with the sticky bit (mode 1777, as /tmp).
 *
 * Every message is one frame: a 20-byte little-endian header (magic "ZMUP",
 * version, kind, sequence number, command id, payload length) and at most
 * 1 MiB of payload. A frame with a bad header or a larger payload is refused
 * with a log line on stderr and that connection is dropped; the server goes
 * on serving the others.
 *
 * What a server holds against its peers:
 *  - At most 128 connections. At that cap, peers that hung up are let go
 *    first, then the peer idle the longest (no frame in progress, no reply
 *    pending); a new client is refused only when all 128 are busy. A client
 *    whose idle connection was closed reconnects on its next call.
 *  - A frame begun must be finished within 2 s of being read, and a reply
 *    taken within 1 s; otherwise that connection is dropped. The limits run
 *    out only while the peer holds things up (no byte of its frame waiting, no
 *    room for its reply), so a server slowed by other peers drops no one.
 *  - Frames over 16 KiB in progress share a budget of 8 MiB across all
 *    peers; a frame that does not fit waits, its sender unread, until the
 *    budget has room (the wait does not count against the 2 s).
 *  - Refusal and drop lines go to stderr at most once a second each, with a
 *    count of those held back.
 *
 * Thread safety: MUPParam objects are not shared between threads. The client
 * functions may be called from any number of threads at once.
 *
 * Capture (builds made with the ZOR_MUP_CAPTURE option only): with
 * ZOR_MUP_CAPTURE=FILE in the environment when libmup is loaded, every frame
 * the process sends or receives is written to FILE as pcapng until the process
 * exits. FILE must not exist (it is created 0600, never through a link);
 * otherwise a line on stderr says why and the process runs without capture.
 * Frames go through a bounded buffer to a writer thread, so no call waits for
 * the disk; frames dropped when the buffer is full are counted in the file.
 */
#ifndef MUP_MUP_H
#define MUP_MUP_H

#include <vector>

#if defined(__GNUC__)
#define MUP_EXPORT __attribute__((visibility("default")))
#else
#define MUP_EXPORT
#endif

/**
 * A parameter buffer: bytes appended by the writer and taken in the same order
 * by the reader. Reads never go past the bytes written:
 *  - read(dst, n) copies min(n, remaining) bytes and returns that count; the
 *    rest of dst is left as it was.
 *  - readInt32() returns -1 when fewer than 4 bytes remain (nothing is taken).
 * A reply buffer left empty by a failed transmission therefore reads -1 as its
 * status word. Integers are in the host's byte order (little-endian on every
 * supported target).
 */
class MUP_EXPORT MUPParam
{
public:
    MUPParam();
    ~MUPParam();
    MUPParam(const MUPParam&) = delete;
    MUPParam& operator=(const MUPParam&) = delete;

    /** Appends count bytes. Returns count, or -1 (nothing appended) when src is
     * null with a non-zero count or memory runs out. */
    int write(const void* src, unsigned int count);
    /** Takes up to count bytes; returns the number copied (0 when dst is null). */
    int read(void* dst, unsigned int count);
    /** Appends one 32-bit integer; returns 4, or -1 when memory runs out. */
    int writeInt32(int value);
    /** Takes one 32-bit integer, or returns -1 when fewer than 4 bytes remain. */
    int readInt32();

    /** Bytes written so far. */
    unsigned int size() const;
    /** Bytes not yet read. */
    unsigned int remaining() const;
    /** All bytes written, read or not; valid until the next change. */
    const unsigned char* data() const;
    /** Replaces the contents (used by the transport when a frame arrives). */
    void assign(const unsigned char* bytes, unsigned int count);
    /** Empties the buffer and rewinds the reader. */
    void clear();

private:
    std::vector<unsigned char> m_bytes;
    unsigned int m_readPos;
};

namespace OXAPC
{

/**
 * The handler that a registered server calls for each inbound command, on the
 * server's own thread, one command at a time in arrival order. out is null
 * when the sender does not wait for a reply; otherwise whatever the handler
 * writes into out is sent back. The fourth argument is always 0 here.
 */
class MUP_EXPORT C_OXAAVSServerHandler
{
public:
    C_OXAAVSServerHandler();
    ~C_OXAAVSServerHandler();
    /** Default: prints a "not implemented" line on stdout and returns -1. */
    virtual int handleCommand(unsigned int cmd, MUPParam& in, MUPParam* out, unsigned int);
};

} // namespace OXAPC

/**
 * Opens (or replaces) this process's client endpoint towards the service
 * `name`. The connection itself is made lazily by the first transmission and
 * remade by a later one after the peer went away. Returns 0, or -1 for an
 * invalid name (null, empty, containing '/', or too long for a socket path).
 */
MUP_EXPORT int OXA_TVC_NewClient(const char* name);

/**
 * Sends command `cmd` with the bytes of `in` over the client endpoint. With a
 * non-null `out`, blocks until the reply arrives and stores it in `out`;
 * returns 0. Returns -1 with `out` left empty when no endpoint is open, the
 * peer can't be reached, is served by another user (not root), goes away, or
 * does not answer within the timeout (5 s; ZOR_MUP_TIMEOUT_MS overrides it).
 * Any number of threads may call it at once, with payloads up to 1 MiB each. A reply that arrives
 * after its caller gave up is discarded. With a null `out` the command is sent without asking for a
 * reply and the call returns once it is written.
 */
MUP_EXPORT int OXA_TVC_TransmitCommand(unsigned int cmd, MUPParam& in, MUPParam* out,
                                       unsigned int flags);

/**
 * Counts of the OXA_TVC_TransmitCommand calls made by the calling thread so
 * far: into *calls all of them, into *unanswered those that returned -1 (no
 * reply came, or the command was not sent). Either pointer may be null. A
 * caller that reads the status word from an emptied reply buffer (it reads -1)
 * tells "nothing answered" from "the service answered -1", and "sent" from
 * "refused before sending", by comparing the counts before and after its own
 * call. Counts start at 0 per thread; never fails.
 */
MUP_EXPORT void OXA_TVC_TransmitCounts(unsigned long* calls, unsigned long* unanswered);

/**
 * Writes the socket path that service `name` maps to in this process
 * (`<runtime dir>/<name>.sock`), NUL-terminated, into `path` of `size` bytes,
 * for messages that tell a user where a service was looked for. Returns the
 * path's length, or -1 (path left empty when size > 0) for an invalid name,
 * no usable runtime directory, or a buffer too small. May create the runtime
 * directory, as opening an endpoint would. Any thread.
 */
MUP_EXPORT int OXA_TVC_SocketPath(const char* name, char* path, unsigned int size);

/**
 * Serves the service `name` with `handler` on a new thread, until the process
 * exits. The handler is borrowed and must outlive the process's use of it.
 * Returns 0, or -1 when the name is invalid, the handler is null, the socket
 * can't be created, or another live process already serves the name.
 */
MUP_EXPORT int initAVSServer(const char* name, OXAPC::C_OXAAVSServerHandler* handler);

#endif
