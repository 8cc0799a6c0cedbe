// Runs the object store on a port of the kernel's choice and prints its address.
//
//   node start-store.js DIRECTORY-OF-THE-INSTALLED-STORE DIRECTORY-OF-ITS-OBJECTS
'use strict';
const path = require('path');
const [installed, directory] = process.argv.slice(2);
const S3rver = require(path.resolve(installed, 'node_modules', 's3rver'));

new S3rver({
  address: '127.0.0.1',
  port: 0,
  directory,
  silent: true,
  configureBuckets: [{ name: 'logs' }],
}).run((error, address) => {
  if (error) {
    console.error(error);
    process.exit(1);
  }
  console.log(`listening on ${address.address}:${address.port}`);
});
