// TLS for the HTTPS side of the back end.
#ifndef LUM_BACKEND_TLS_H
#define LUM_BACKEND_TLS_H

#include <openssl/ssl.h>

#include <boost/asio/ssl/context.hpp>
#include <string>

// A context for servers, TLS 1.2 and later, without resumption. `clientCa`, unless empty, names the
// authorities of the client certificates, which are then required. All three are PEM files; the key
// must not be encrypted. Throws std::runtime_error naming the file that cannot be used.
boost::asio::ssl::context MakeServerContext(const std::string& certificate, const std::string& key,
                                            const std::string& clientCa);

// Self-made material in `directory`, which is made where it is missing: ca.pem, server.pem and
// server.key for the server, which answers for loopback and `address`; client.pem with client.key,
// and client-encrypted.key with its pass phrase in client-encrypted.pass, for clients; and some
// more that a client or server should refuse. What an earlier call made is used again as long as it
// is good for another day. Several processes may call it for one directory. Throws
// std::runtime_error.
void MakeServerFiles(const std::string& directory, const std::string& address);

// Subject of the certificate that the client has shown, as "CN=lum client", or "" without one.
std::string ClientSubject(const SSL* ssl);

#endif  // LUM_BACKEND_TLS_H
