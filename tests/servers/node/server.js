// A WebSocket peer built on Node's ws, over ws and wss. It offers what websocket_server.py
// offers; README.md has the table.
//
//   server.js PLAIN_FD SECURE_FD CERTIFICATE KEY

'use strict';

const fs = require('node:fs');
const http = require('node:http');
const https = require('node:https');
const { WebSocketServer } = require('ws');

const PERIOD = 251; // what generated messages repeat: a prime length shifts against any buffer
const BACKLOG = 4096;
const CLOSE_TIMEOUT_MS = 1000; // how long a client has to answer a close frame

function generated(size) {
  return Buffer.from(Uint8Array.from({ length: size }, (_, index) => index % PERIOD));
}

function echo(socket) {
  socket.send('ready');
  socket.on('message', (data, isBinary) => socket.send(data, { binary: isBinary }));
}

// Wants 0, 1, 2 and so on; tells after each `every` how far they came in order.
function order(socket, query) {
  const every = Number(query.get('every') ?? 1000);
  let expected = 0;
  socket.send('ready');
  socket.on('message', (data) => {
    const message = data.toString();
    if (message !== String(expected)) {
      socket.send(`got ${message.slice(0, 20)} instead of ${expected}`);
      socket.removeAllListeners('message');
      socket.close(1000);
      return;
    }
    expected += 1;
    if (expected % every === 0) {
      socket.send(String(expected));
    }
  });
}

// n messages of `size` bytes; without a size, the numbers 0, 1, 2 and so on.
function send(socket, query) {
  const body = query.has('size') ? generated(Number(query.get('size'))) : null;
  for (let number = 0; number < Number(query.get('n') ?? 1); number += 1) {
    socket.send(body ?? String(number));
  }
}

function ping(socket) {
  const payload = 'are you there';
  socket.on('pong', (data) => {
    if (data.toString() === payload) {
      socket.send('pong received');
    }
  });
  socket.ping(payload);
}

function close(socket, query) {
  socket.close(Number(query.get('code') ?? 1000), query.get('reason') ?? '');
}

// A promise for each key of /watched and /closed, kept by the one that the other waits for.
const endings = new Map();

function ending(query) {
  const key = query.get('key');
  if (!endings.has(key)) {
    const made = {};
    made.promise = new Promise((resolve) => { made.resolve = resolve; });
    endings.set(key, made);
  }
  return endings.get(key);
}

function watched(socket, query) {
  socket.on('close', (code, reason) => ending(query).resolve(`${code} ${reason}`));
  socket.send('ready');
}

function closed(socket, query) {
  ending(query).promise.then((text) => {
    socket.send(text);
    socket.close(1000);
  });
}

// Reads nothing: what a client sends stays in the system's buffers, then in the client's.
function deaf(socket) {
  socket.send('ready');
  socket.pause();
}

const BEHAVIOURS = {
  '/echo': echo,
  '/order': order,
  '/send': send,
  '/ping': ping,
  '/close': close,
  '/watched': watched,
  '/closed': closed,
  '/deaf': deaf,
};

function serve(server, fd) {
  server.on('request', (_request, response) => response.writeHead(426).end());
  const sockets = new WebSocketServer({
    server, closeTimeout: CLOSE_TIMEOUT_MS, maxPayload: 0, perMessageDeflate: false,
  });
  sockets.on('connection', (socket, request) => {
    const url = new URL(request.url, 'ws://localhost');
    socket.on('error', (error) => console.error(`connection ended: ${error.message}`));
    (BEHAVIOURS[url.pathname] ?? ((other) => other.terminate()))(socket, url.searchParams);
  });
  server.listen({ fd, backlog: BACKLOG });
}

const [plainFd, secureFd, certificate, key] = process.argv.slice(2);
serve(http.createServer(), Number(plainFd));
serve(https.createServer({ cert: fs.readFileSync(certificate), key: fs.readFileSync(key) }),
  Number(secureFd));
