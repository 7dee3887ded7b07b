// Peer connections do not pass through the request filter.
for (const name of ['RTCPeerConnection', 'webkitRTCPeerConnection', 'RTCDataChannel', 'WebTransport'])
    delete window[name];
