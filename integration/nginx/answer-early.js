// An HTTP/2 server that answers each request with 404 as soon as its head is there, reads its body no
// further than the window that every stream starts with, and does not reset the stream. (nginx does.)
//
//   node answer-early.js CERTIFICATE KEY     prints its port when it serves

const fs = require('fs');
const tls = require('tls');

const kHeaders = 1;
const kSettings = 4;
const kAck = 1;
const kEndOfStreamAndHeaders = 5;

function frame(type, flags, stream, payload) {
  const head = Buffer.alloc(9);
  head.writeUIntBE(payload.length, 0, 3);
  head[3] = type;
  head[4] = flags;
  head.writeUInt32BE(stream, 5);
  return Buffer.concat([head, Buffer.from(payload)]);
}

const [cert, key] = process.argv.slice(2).map((path) => fs.readFileSync(path));
const server = tls.createServer({cert, key, ALPNProtocols: ['h2']}, (socket) => {
  let unread = Buffer.alloc(0);
  let skip = 24;  // the connection preface
  socket.on('error', () => {});
  socket.write(frame(kSettings, 0, 0, []));
  socket.on('data', (bytes) => {
    unread = Buffer.concat([unread, bytes]);
    for (;;) {
      const start = unread.subarray(skip);
      if (start.length < 9) return;
      const length = 9 + start.readUIntBE(0, 3);
      if (start.length < length) return;
      const [type, flags] = [start[3], start[4]];
      if (type === kSettings && !(flags & kAck)) socket.write(frame(kSettings, kAck, 0, []));
      if (type === kHeaders) {
        const status404 = 0x80 + 13;  // of HPACK's static table
        socket.write(frame(kHeaders, kEndOfStreamAndHeaders, start.readUInt32BE(5), [status404]));
      }
      unread = start.subarray(length);
      skip = 0;
    }
  });
});
server.listen(0, '127.0.0.1', () => console.log(`port ${server.address().port}`));
