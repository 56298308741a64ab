#!/bin/sh
# Certificates for the tests, in the directory named: a root, and what it has signed, each with its key in one file.
set -eu
cd "$1"
printf '%s\n' '[ca]' 'default_ca=us' '[us]' 'database=index' 'serial=serial' 'new_certs_dir=.' 'default_md=sha256' \
    'policy=any' 'unique_subject=no' '[any]' 'commonName=supplied' '[req]' 'distinguished_name=name' '[name]' \
    '[root]' 'basicConstraints=critical,CA:true' '[server]' 'subjectAltName=DNS:localhost,IP:127.0.0.1,IP:::1' \
    '[other]' 'subjectAltName=DNS:camera.example,IP:10.0.0.1' '[own]' 'basicConstraints=CA:false' >config
: >index
echo 01 >serial
new_key() { openssl ecparam -name prime256v1 -genkey -noout -out "$1.key"; }
new_key root
openssl req -config config -x509 -key root.key -subj /CN=root -days 2 -extensions root -out root.pem
signed() { # NAME EXTENSIONS DATES...
    name=$1 extensions=$2
    shift 2
    new_key "$name"
    openssl req -config config -new -key "$name.key" -subj "/CN=$name" -out "$name.csr"
    openssl ca -config config -batch -notext -cert root.pem -keyfile root.key -extensions "$extensions" "$@" \
        -in "$name.csr" -out "$name.crt"
    cat "$name.crt" "$name.key" >"$name.pem"
}
signed good server -days 2
signed other other -days 2
signed expired server -startdate 20200101000000Z -enddate 20200102000000Z
signed viewer own -days 2
new_key self
openssl req -config config -x509 -key self.key -subj /CN=self -days 2 -extensions server -out self.crt
cat self.crt self.key >self.pem
