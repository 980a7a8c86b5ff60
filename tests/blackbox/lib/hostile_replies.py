"""What a hostile server of either protocol sends."""

from .http_script import Reply, edited

# Bodies, by what they are.
BODIES = {
    "empty": b"",
    "html": "<html><body>Sign in to the hotel network</body></html>",
    "number": "7",
    "null": "null",
    "text": '"text"',
    "array": "[]",
    "array of objects": '[{"status":"valid"}]',
    "empty object": "{}",
    "cut JSON": '{"status":"val',
    "nested arrays": "[" * 100_000,
    "closed nested arrays": "[" * 100_000 + "]" * 100_000,
    "nested objects": '{"a":' * 100_000,
    "nested in status": '{"status":' + "[" * 100_000 + "]" * 100_000 + "}",
    "2 MB": '{"detail":"' + "x" * 2_000_000 + '"}',
    "2 MB of escapes": '{"detail":"' + "\u00e9" * 1_000_000 + '"}',
    "10 MB": '{"detail":"' + "x" * 10_000_000 + '"}',
    "10 MB of commas": "," * 10_000_000,
    "NUL bytes": b'{"status":"val\0id"}\0\0',
    "invalid UTF-8": b'{"status":"\xff\xfe\xc0\x80","detail":"\xff"}',
    "lone surrogates": '{"detail":"\\ud800","type":"\\udc00"}',
    "huge numbers": '{"status":1e999999,"detail":-99999999999999999999999999}',
    "formats": '{"type":"%s%n%n%s","detail":"%s%n%99999d","status":"%n"}',
    "comments": '/* */ {"status" /**/ : "valid" // \n}',
    "two documents": '{"status":"valid"}{"status":"valid"}',
}

# More than is taken of any reply, whether it is looked at or not.
TOO_LONG = {"10 MB", "10 MB of commas"}

# Whole replies that break somewhere, by what is wrong with them.
TRANSFERS = {
    "dropped connection": Reply(drop=True),
    "cut off body": edited(cut=1),
    "cut off header": Reply(raw=b"HTTP/1.1 200 OK\r\nContent-Le"),
    "no HTTP": Reply(raw=b"SSH-2.0-OpenSSH_9.2\r\n"),
    "no header": Reply(raw=b"HTTP/1.1 200 OK\r\n\r\n"),
    "wrong length": Reply(raw=b"HTTP/1.1 200 OK\r\nContent-Length: 99999999999\r\n\r\n{}"),
    "bad chunks": Reply(raw=b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzzz\r\n{}"),
    "redirect loop": lambda request, _normal: Reply(302, "", {"Location": request.target}),
    "redirect to a file": Reply(302, "", {"Location": "file:///etc/passwd"}),
    "redirect to nowhere": Reply(302, "", {"Location": "http://127.0.0.1:1/"}),
    "redirect without a target": Reply(302, ""),
    "endless header": Reply(raw=b"HTTP/1.1 200 OK\r\n" + b"X: " + b"x" * 2_000_000 + b"\r\n\r\n"),
    "many headers": Reply(raw=b"HTTP/1.1 200 OK\r\n" + b"X: y\r\n" * 400_000 + b"\r\n{}"),
}
