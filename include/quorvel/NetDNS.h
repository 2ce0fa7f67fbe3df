/* Names: host names and addresses, asked over a connection's own interface and from its own DNS servers.
 *
 * Rules that hold for every function of this header:
 *
 *  1. Layout. A result is a struct hostent at the start of a buffer, with everything that it points to in the
 *     same buffer: behind the structure two arrays of 35 pointers each (aliases, addresses; at most 34 entries
 *     and a null), then the strings and addresses. h_addrtype is AF_INET and h_length is 4. With S for
 *     sizeof(struct hostent) and P for the size of a pointer the data begin at S + 70 * P: 300 on a 32-bit
 *     system, 592 on a 64-bit one. A buffer should be aligned for a pointer.
 *  2. Needed length. The number of bytes of the buffer that a result needs: S + 70 * P, plus every string with
 *     its NUL, plus every address. When a buffer is too small it is the length up to the first piece that did
 *     not fit: enlarge the buffer and ask again.
 *  3. Ownership. A buffer that is passed in belongs to the caller. NetDNSGetHostByName alone returns memory of
 *     the library's: do not free it. The hostent of a callback is gone when the callback returns.
 *  4. What blocks. Asking one DNS server takes at most two attempts of 2 seconds each. NetDNSGetHostByName asks
 *     two servers, one after the other; an answer that does not fit into its buffer is asked for again, with twice
 *     the room. It serves one thread at a time. NetDNSGetHostByNameAsync and the cache never wait for a server. No
 *     other lock of the resolver is held while it waits for anything, traces a line or calls back.
 *  5. Callbacks run on a thread of the library's own, one per host name, with no lock held: a callback may call
 *     any function of the library, and holds up only the other requests for the same name. It must return: ending
 *     the thread in it (pthread_exit) and jumping out of it are forbidden, as they are in the sink of the traces.
 *  6. Threads. Every function may be called from any thread. Each query seeds the C library's generator with
 *     the time (srand) and draws its id from it (rand).
 *  7. The cache is one per process, for all profiles. It keeps 10 host names, those used last. It is emptied
 *     when a lookup is made over a profile with another primary DNS server than the lookup before.
 *  8. Every descriptor that the library opens is close-on-exec and above 2, and no SIGPIPE leaves the library.
 *  9. The environment variable QVDNS_DEBUG, a decimal number, is read at every lookup. Above 2, the packets sent
 *     and received are traced byte by byte.
 * 10. Cancellation. A thread that is cancelled (pthread_cancel, deferred) while it is in one of these functions is
 *     cancelled at the first cancellation point after it has returned; get_dns_result_fron_cache, which waits for
 *     nothing, may end in the sink of the traces. A callback's thread cannot be cancelled.
 * 11. Fork. The child has a resolver that has never been used: no lookup is under way, no request is outstanding,
 *     and no callback comes for one of the parent's, also where the callback itself has forked; the cache is empty,
 *     and no result of the parent's is valid.
 */
#ifndef QUORVEL_NETDNS_H
#define QUORVEL_NETDNS_H

#include <netdb.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------------------------------------------
 * Names over a profile */

/* Resolves a host name over a profile's connection, from the cache where it can.
 *
 *   profile_id   profile of an open connection, above 0
 *   hostname     NUL-terminated: letters, digits, "-" and ".", at least two of them, beginning with a letter or a
 *                digit and not ending with "-"; or a dotted IPv4 address
 *
 * "localhost", in any case, and addresses that begin with "127." are answered at once, for any profile.
 *
 * Returns the host, in a buffer that the library keeps for all threads: it is valid until any thread calls this
 * function again. Null when the name or the profile is not valid, the profile has no open connection or no DNS
 * server, no server knew the name or answered, or memory ran out.
 *
 * Example: examples/resolve.c */
struct hostent *NetDNSGetHostByName(int profile_id, const char *hostname);

/* Resolves a host name in the background.
 *
 *   profile_id   as above; also for a local name it must be above 0
 *   hostname     as above; copied
 *   callback     called once, with the host, or with null when the name could not be resolved, and the request's
 *                id (rules 3 and 5)
 *   dnsid        receives the request's id, 1 to 10, before the callback can be called with it. It is used again
 *                once the callback has returned
 *
 * Requests for a name that is already being resolved, over whatever profile, share its one query.
 *
 * Returns 1 when the request is accepted: the callback will be called. Returns 0, and calls nothing, when an
 * argument, the profile or the name is not valid, when 10 requests are outstanding or 10 workers are still
 * running, or when memory or threads ran out. */
int NetDNSGetHostByNameAsync(int profile_id, const char *hostname,
                             void (*callback)(struct hostent *host, unsigned int dnsid), unsigned int *dnsid);

/* ---------------------------------------------------------------------------------------------------------------
 * One query to one server */

/* Resolves a host name with an A query. Neither the cache nor a profile has a part in it.
 *
 *   server     dotted IPv4 address of the DNS server; asked on UDP port 53
 *   ifname     network interface that the query leaves over; null: as the system routes it
 *   name       host name of at most 255 characters, its labels but the last at most 63 long; or a dotted IPv4
 *              address, which is laid out at once, with no query
 *   buf        receives the result (rule 1)
 *   buflen     its length in bytes
 *   h_errnop   receives the error code; may be null
 *   ttlp       receives the life time in seconds of the last record of the answer; may be null. Not written when
 *              `name` is an address
 *   neededp    receives the needed length (rule 2); may be null. Not written when no answer was received
 *
 * Returns `buf` as a hostent, or null. The name is the owner of the first A record, the aliases are the owners
 * of the CNAME records; an answer with neither gives a host whose h_name is null. When an answer does not fit, or
 * cannot be read to its end, `buf` holds the hostent as far as it came: h_name is null or stored, and the arrays that
 * `buf` has room for end behind what was stored. On null:
 *
 *   error code              errno    cause
 *   NETDB_INTERNAL (-1)     EINVAL   `name` is null, too long, or has an empty or too long label
 *   NETDB_INTERNAL (-1)     ERANGE   the buffer is too small
 *   NETDB_SUCCESS (0)       ENOENT   the server refused with a code above 5
 *   HOST_NOT_FOUND (1)      ENOENT   no answer in the response, a response to another query, or not readable
 *   TRY_AGAIN (2)           EAGAIN   no response in two attempts, or the socket could not be made
 *   TRY_AGAIN (2)           ENOENT   failure of the server
 *   NO_RECOVERY (3)         ENOENT   the server could not read the query, does not support it, or refuses it
 *   NO_DATA (4)             ENOENT   the server says that there is no such name */
struct hostent *dnet_gethostbyname_r(const char *server, const char *ifname, const char *name, char *buf, int buflen,
                                     int *h_errnop, unsigned int *ttlp, int *neededp);

/* Finds the name of an IPv4 address with a PTR query.
 *
 *   addr       the address: 4 bytes in network byte order, whatever `addrlen` says
 *   addrlen    at most 255
 *   type       accepted and not used: the query is always for an IPv4 address
 *
 * The other parameters and the errors are those of dnet_gethostbyname_r.
 *
 * Returns as dnet_gethostbyname_r does; the address of the result is the one asked for. */
struct hostent *dnet_gethostbyaddr_r(const char *server, const char *ifname, const char *addr, int addrlen, int type,
                                     char *buf, int buflen, int *h_errnop, unsigned int *ttlp, int *neededp);

/* ---------------------------------------------------------------------------------------------------------------
 * The cache */

/* Looks a host name up in the cache.
 *
 *   hostname   compared as it is, in its case, with the names and aliases of the cached hosts
 *   buf        receives a copy of the host (rule 1)
 *   buflen     its length in bytes
 *   result     receives `buf` as a hostent, or null for a name that is known not to exist. Unchanged when the
 *              name is not in the cache
 *
 * Returns 0 when the name was found, and 3 when it was not, has run out, or does not fit in the buffer. A name
 * that was found becomes the one used last; one that has run out is deleted. */
int get_dns_result_fron_cache(const char *hostname, char *buf, int buflen, struct hostent **result);

/* Puts a host into the cache, in place of the one whose use is longest ago when 10 are there. A name that is
 * there and has not run out is left as it is.
 *
 *   hostname   the name that was asked for
 *   host       the host; copied. Null: the name is known not to exist, for 300 seconds
 *   size       needed length of `host` in bytes; not used when `host` is null
 *   ttl        life time in seconds; not used when `host` is null. 0: the host is never given out
 *
 * A host without a name, or one that does not fit in `size`, is not kept; nor is anything when memory ran out. */
void update_dns_cache(const char *hostname, struct hostent *host, int size, unsigned int ttl);

/* Empties the cache. */
void clear_dns_cache(void);

/* ---------------------------------------------------------------------------------------------------------------
 * Sockets
 *
 * Thin helpers over IPv4 sockets. They repeat a call that a signal has interrupted, and trace a failure. On -1
 * errno is the system's, or as stated. */

/* The resolver's debug level (rule 9); 0: off. Written by every lookup. */
extern int _dns_debug;

/* Reads QVDNS_DEBUG into _dns_debug: 0 when it is not set or is no number. */
void dns_getenv(void);

/* Opens a socket.
 *
 *   udp      not 0: a datagram socket, 0: a stream socket
 *   ifname   network interface to bind it to; may be null
 *
 * Returns the descriptor, close-on-exec and above 2; the caller closes it with dns_close. -1 on failure, also
 * when there is no such interface. */
int dns_socket(int udp, const char *ifname);

/* Connects a socket to a server.
 *
 *   fd       the socket
 *   server   dotted IPv4 address
 *   port     in host byte order
 *
 * Returns 0, or -1; errno is EINVAL when `server` is no address. */
int dns_connect(int fd, const char *server, int port);

/* Sends bytes on a connected socket.
 *
 *   fd    the socket
 *   buf   the bytes
 *   len   how many
 *
 * Returns the number of bytes sent, or -1. */
int dns_send(int fd, const void *buf, int len);

/* Waits until a socket is readable or has failed.
 *
 *   fd           the socket
 *   timeout_ms   for how many milliseconds; below 0: for ever
 *
 * Returns a number above 0 when it is or has; 0 with errno EAGAIN when the time has passed; -1 on failure. */
int dns_poll(int fd, int timeout_ms);

/* Receives bytes from a socket, and waits for the first of them.
 *
 *   fd    the socket, above 0
 *   buf   receives the bytes; not null
 *   len   how many there is room for, above 0
 *
 * Returns the number of bytes, 0 when the other end has closed; -1 on failure, and for an argument that is not so. */
int dns_recv(int fd, void *buf, int len);

/* Closes a socket. Returns 1. */
int dns_close(int fd);

#ifdef __cplusplus
}
#endif

#endif
