CREATE TABLE report (              -- documents as they were reported, whole
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  document TEXT NOT NULL           -- compact JSON
);
CREATE TABLE exchange (            -- requests with their answers
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  time INTEGER NOT NULL,           -- of the beginning, milliseconds since 1970
  duration INTEGER NOT NULL,       -- microseconds
  kind TEXT NOT NULL,              -- report, upload, token, configuration, address, download,
                                   -- echo, other; refusal: status 0 or from 400 on
  method TEXT NOT NULL,
  path TEXT NOT NULL,              -- as sent
  query TEXT NOT NULL,             -- secrets are ***
  status INTEGER NOT NULL,         -- 0: there was no answer
  bytes_in INTEGER NOT NULL,       -- of the request's body
  bytes_out INTEGER NOT NULL,      -- of the whole answer
  device TEXT NOT NULL,
  topic TEXT NOT NULL,
  object TEXT NOT NULL,            -- name of a file
  gzip INTEGER NOT NULL,           -- 1: the body was packed
  signed INTEGER NOT NULL,
  tls INTEGER NOT NULL,
  text TEXT NOT NULL,              -- the beginning of a report
  refusal TEXT NOT NULL,           -- why it was refused
  client TEXT NOT NULL,            -- address and port
  authority TEXT NOT NULL,         -- of the back end
  head TEXT NOT NULL,              -- [{"name", "value"}, ...], secrets are ***
  answer_head TEXT NOT NULL,
  answer_text TEXT NOT NULL,       -- the beginning of a JSON answer
  report INTEGER NOT NULL,         -- report.id, or 0
  body NOT NULL,                   -- the beginning of other bodies: text, or a blob
  body_size INTEGER NOT NULL,      -- of body or document
  body_whole INTEGER NOT NULL
);
