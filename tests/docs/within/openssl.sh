# Commands for a server's and a file's certificate, tried on those of a server of openssl's own.
mkdir -p "$WORK"
cd "$WORK"
openssl req -x509 -newkey rsa:2048 -nodes -keyout server.key -out server.pem -days 2 -subj /CN=localhost \
    -addext "subjectAltName=DNS:localhost" 2>/dev/null
cp server.pem ca.pem
openssl s_server -accept 127.0.0.1:0 -cert server.pem -key server.key -www >server.log 2>&1 </dev/null &
server=$!
trap 'kill "$server" 2>/dev/null || true' EXIT
for _ in $(seq 100); do
    PORT=$(sed -n 's/^ACCEPT .*://p' server.log)
    [ -z "$PORT" ] || break
    sleep 0.1
done
HOST=localhost
{
BLOCK
} >log 2>&1 || { cat log; exit 1; }
grep -q "Verify return code: 0" log || { cat log; exit 1; }
grep -q "DNS:localhost" log
