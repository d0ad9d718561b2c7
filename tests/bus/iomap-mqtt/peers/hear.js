#!/usr/bin/env node
// SPDX-License-Identifier: MIT
//
// hear.js PORT TOPIC: says "subscribed", prints the payload of the first message of the topic, and
// ends.
'use strict';
const [, , port, topic] = process.argv;
const client = require('mqtt').connect({host: '127.0.0.1', port: Number(port)});
client.on('connect', () => client.subscribe(topic, {qos: 1}, () => console.log('subscribed')));
client.on('message', (name, payload) => {
    console.log(payload.toString());
    client.end();
});
