// What the options are for: --help and the man page.
#ifndef LUM_BACKEND_OPTION_TEXTS_H
#define LUM_BACKEND_OPTION_TEXTS_H

struct OptionText {
  const char* name;
  const char* value;  // "": a switch
  const char* group;
  const char* text;
};

constexpr OptionText kOptionTexts[] = {
    {"--root", "DIR", "Serve",
     "Directory with files/, objects/, configs/ and lumbackend.db; made when missing, used by one "
     "lumbackend at a time"},
    {"--port", "N", "Serve",
     "Serve HTTP on this port; 0: the kernel chooses (the default without --tls-port)"},
    {"--tls-port", "N", "Serve", "Serve HTTPS on this port; 0: the kernel chooses"},
    {"--bind", "ADDR", "Serve", "Address to listen on (default: 127.0.0.1)"},
    {"--max-body", "BYTES", "Serve",
     "Refuse longer request bodies, unpacked size included, with 413 (default: 64 MiB for JSON, no "
     "limit for objects); suffixes like 10MB are understood"},
    {"--keep", "N", "Serve",
     "Exchanges, and reports, that are kept; older ones give way (default: 1000000)"},
    {"--tls-dir", "DIR", "TLS",
     "Where self-made TLS material is kept for server and clients (default: ROOT/tls)"},
    {"--cert", "FILE", "TLS", "Own server certificate chain, PEM"},
    {"--key", "FILE", "TLS", "Its private key, PEM, not encrypted"},
    {"--client-ca", "FILE", "TLS",
     "Require client certificates that these authorities have signed, PEM"},
    {"--token-lifetime", "SECONDS", "Access", "How long a token is valid (default: 3600)"},
    {"--open", "", "Access", "Ask for no token"},
    {"--host", "NAME", "Access",
     "Answer to this name, too, in Host and Origin; numeric addresses and localhost need no leave. "
     "May be given again"},
    {"--sign-key-file", "FILE", "Access",
     "Check Date and Authorization of uploads against the key in this file: \"LUM \" and the "
     "base64 of the HMAC-SHA1 of method, date and path, one a line"},
    {"--fail-rate", "P", "Misbehave on purpose, but for the page",
     "Share of the requests answered 503, 0 to 1"},
    {"--seed", "N", "Misbehave on purpose, but for the page",
     "Seed of the sequence that says which requests fail (default: 0)"},
    {"--status", "N", "Misbehave on purpose, but for the page",
     "Answer every request with this status, do nothing"},
    {"--delay", "MS", "Misbehave on purpose, but for the page",
     "Wait this long before every answer"},
    {"--cut-after", "BYTES", "Misbehave on purpose, but for the page",
     "Close the connection after this many bytes of an answer, its head included"},
};

#endif  // LUM_BACKEND_OPTION_TEXTS_H
