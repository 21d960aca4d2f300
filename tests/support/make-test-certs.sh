#!/bin/sh
# Makes the local HTTPS servers' certificates in DIR: for each of two independent chains
# ("trusted", which the tests tell clients to trust, and "untrusted", which nobody trusts) a CA and
# a server certificate for localhost and 127.0.0.1 signed by it.
set -eu
dir=$1
mkdir -p "$dir"
cd "$dir"
cat >server.ext <<'EXT'
basicConstraints=CA:FALSE
subjectAltName=DNS:localhost,IP:127.0.0.1
EXT
for chain in trusted untrusted; do
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 3650 \
        -subj "/CN=Orvex $chain Test CA" -keyout "$chain-ca.key" -out "$chain-ca.pem" 2>/dev/null
    openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj "/CN=localhost" \
        -keyout "$chain-server.key" -out "$chain-server.csr" 2>/dev/null
    openssl x509 -req -in "$chain-server.csr" -CA "$chain-ca.pem" -CAkey "$chain-ca.key" \
        -CAcreateserial -days 3650 -extfile server.ext -out "$chain-server.pem" 2>/dev/null
done
