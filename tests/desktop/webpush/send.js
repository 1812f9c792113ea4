// The application server of the web-push test, written with the npm package web-push: it makes
// VAPID keys, or encrypts a payload to a subscription's keys (RFC 8291, aes128gcm) and signs it
// (RFC 8292), then POSTs it to the endpoint with node's own http module (web-push's sender speaks
// https only; the development distributor listens on http://127.0.0.1).
//
//   node send.js keys
//       prints {"publicKey": ..., "privateKey": ...} (URL-safe base64)
//   node send.js send ENDPOINT P256DH AUTH VAPID_PUBLIC VAPID_PRIVATE PAYLOAD
//       prints the endpoint's status; exits 0 when it is 2xx
'use strict';

const http = require('http');
const webpush = require('web-push');

function send([endpoint, p256dh, auth, publicKey, privateKey, payload]) {
  const details = webpush.generateRequestDetails({ endpoint, keys: { p256dh, auth } }, payload, {
    TTL: 60,
    contentEncoding: webpush.supportedContentEncodings.AES_128_GCM,
    vapidDetails: { subject: 'mailto:web-push-test@orvanta.invalid', publicKey, privateKey },
  });
  const request = http.request(details.endpoint, { method: details.method, headers: details.headers },
    (response) => {
      response.resume();
      response.on('end', () => {
        console.log(String(response.statusCode));
        process.exit(response.statusCode >= 200 && response.statusCode < 300 ? 0 : 1);
      });
    });
  request.setTimeout(20000, () => request.destroy(new Error('no answer within 20 s')));
  request.on('error', (error) => {
    console.error(`web-push test sender: ${error.message}`);
    process.exit(1);
  });
  request.end(details.body);
}

const [command, ...rest] = process.argv.slice(2);
if (command === 'keys') {
  console.log(JSON.stringify(webpush.generateVAPIDKeys()));
} else if (command === 'send' && rest.length === 6) {
  send(rest);
} else {
  console.error('usage: node send.js keys | send ENDPOINT P256DH AUTH VAPID_PUBLIC VAPID_PRIVATE PAYLOAD');
  process.exit(2);
}
