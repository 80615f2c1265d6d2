#!/bin/sh
# Generates the certificates of the tests' HTTPS server: a test CA and a server certificate for
# 127.0.0.1 and localhost signed by it, both valid for 100 years so the committed files never expire.
# Run once from this folder; the outputs are committed and the tests never regenerate them.
set -eu
cd "$(dirname "$0")"
days=36500
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

openssl ecparam -name prime256v1 -genkey -noout -out "$work/ca.key"
openssl req -x509 -new -key "$work/ca.key" -sha256 -days "$days" \
    -subj "/O=Tavrinox tests/CN=Tavrinox test CA" \
    -addext "basicConstraints=critical,CA:TRUE" \
    -addext "keyUsage=critical,keyCertSign,cRLSign" \
    -out ca.pem

openssl ecparam -name prime256v1 -genkey -noout -out "$work/server.key"
openssl pkcs8 -topk8 -nocrypt -in "$work/server.key" -out server.key
openssl req -new -key server.key -subj "/O=Tavrinox tests/CN=127.0.0.1" -out "$work/server.csr"
cat > "$work/server.ext" <<EXT
basicConstraints=critical,CA:FALSE
keyUsage=critical,digitalSignature,keyEncipherment
extendedKeyUsage=serverAuth
subjectAltName=IP:127.0.0.1,DNS:localhost
EXT
openssl x509 -req -in "$work/server.csr" -CA ca.pem -CAkey "$work/ca.key" -CAcreateserial \
    -CAserial "$work/ca.srl" -sha256 -days "$days" -extfile "$work/server.ext" -out server.pem
