#!/usr/bin/env python3
"""A loopback stand-in for the model providers' APIs, just enough to drive a real agent CLI.

A conversation whose latest user text holds "Run this shell command: <command>" gets one Bash tool
call for that command; the request that carries its tool_result gets a short closing text with
stop_reason end_turn. Every other request (titles, topics, quota checks) gets a short plain text.

`POST /v1/responses` (a responses-style API, for Codex) answers every request with the same short text,
streamed.

Prints the chosen port on the first line of standard output, then serves until terminated.
Each request is appended to the log file as one JSON line.
"""

import argparse
import gzip
import http.server
import itertools
import json
import re
import sys
import threading

TRIGGER = re.compile(r"Run this shell command: (.+?)\s*$", re.MULTILINE)
MODEL = "claude-sonnet-4-5"

_ids = itertools.count(1)
_log_lock = threading.Lock()


def next_id(prefix):
    return "%s_%024d" % (prefix, next(_ids))


def texts_of(message):
    content = message.get("content") if isinstance(message, dict) else None
    if isinstance(content, str):
        return [content]
    if not isinstance(content, list):
        return []
    return [b.get("text", "") for b in content if isinstance(b, dict) and b.get("type") == "text"]


def tool_results_of(message):
    content = message.get("content") if isinstance(message, dict) else None
    if not isinstance(content, list):
        return []
    return [b for b in content if isinstance(b, dict) and b.get("type") == "tool_result"]


def offers_bash(body):
    tools = body.get("tools")
    return isinstance(tools, list) and any(isinstance(t, dict) and t.get("name") == "Bash" for t in tools)


def last_user_message(body):
    # The CLI may put messages of other roles (such as "system") after the user's turn.
    messages = body.get("messages") if isinstance(body.get("messages"), list) else []
    users = [m for m in messages if isinstance(m, dict) and m.get("role") == "user"]
    return users[-1] if users else {}


def plan(body):
    """Decides the answer: ("tool", command), ("text", words, "end_turn")."""
    last = last_user_message(body)
    results = tool_results_of(last)
    if results:
        denied = any(r.get("is_error") for r in results)
        return ("text", "The command was refused." if denied else "The command ran.")
    if offers_bash(body):
        for text in texts_of(last):
            found = TRIGGER.search(text)
            if found:
                return ("tool", found.group(1))
    return ("text", "Mirrowisp test")


def message_json(content, stop_reason, model):
    return {
        "id": next_id("msg"),
        "type": "message",
        "role": "assistant",
        "model": model,
        "content": content,
        "stop_reason": stop_reason,
        "stop_sequence": None,
        "usage": {"input_tokens": 12, "output_tokens": 6},
    }


def sse(event, data):
    return ("event: %s\ndata: %s\n\n" % (event, json.dumps(data))).encode()


def stream_body(answer, model):
    start = message_json([], None, model)
    start["usage"] = {"input_tokens": 12, "output_tokens": 1}
    out = [sse("message_start", {"type": "message_start", "message": start})]
    if answer[0] == "tool":
        block = {"type": "tool_use", "id": next_id("toolu"), "name": "Bash", "input": {}}
        tool_input = {"command": answer[1], "description": "Run the requested command"}
        delta = {"type": "input_json_delta", "partial_json": json.dumps(tool_input)}
        stop_reason = "tool_use"
    else:
        block = {"type": "text", "text": ""}
        delta = {"type": "text_delta", "text": answer[1]}
        stop_reason = "end_turn"
    out.append(sse("content_block_start", {"type": "content_block_start", "index": 0, "content_block": block}))
    out.append(sse("content_block_delta", {"type": "content_block_delta", "index": 0, "delta": delta}))
    out.append(sse("content_block_stop", {"type": "content_block_stop", "index": 0}))
    out.append(
        sse(
            "message_delta",
            {
                "type": "message_delta",
                "delta": {"stop_reason": stop_reason, "stop_sequence": None},
                "usage": {"output_tokens": 6},
            },
        )
    )
    out.append(sse("message_stop", {"type": "message_stop"}))
    return b"".join(out)


def whole_body(answer, model):
    if answer[0] == "tool":
        content = [
            {
                "type": "tool_use",
                "id": next_id("toolu"),
                "name": "Bash",
                "input": {"command": answer[1], "description": "Run the requested command"},
            }
        ]
        return json.dumps(message_json(content, "tool_use", model)).encode()
    return json.dumps(message_json([{"type": "text", "text": answer[1]}], "end_turn", model)).encode()


def responses_stream(text):
    """A responses-style event stream holding one assistant message."""
    response_id = next_id("resp")
    item = {
        "type": "message",
        "role": "assistant",
        "id": next_id("msg"),
        "content": [{"type": "output_text", "text": text, "annotations": []}],
    }
    usage = {
        "input_tokens": 12,
        "input_tokens_details": {"cached_tokens": 0},
        "output_tokens": 6,
        "output_tokens_details": {"reasoning_tokens": 0},
        "total_tokens": 18,
    }
    events = [
        {"type": "response.created", "response": {"id": response_id}},
        {"type": "response.output_item.added", "output_index": 0, "item": dict(item, content=[])},
        {
            "type": "response.output_text.delta",
            "output_index": 0,
            "content_index": 0,
            "item_id": item["id"],
            "delta": text,
        },
        {"type": "response.output_item.done", "output_index": 0, "item": item},
        {"type": "response.completed", "response": {"id": response_id, "usage": usage}},
    ]
    return b"".join(sse(e["type"], e) for e in events)


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    log_path = None

    def log_message(self, format, *args):  # noqa: A002 - the base class's signature
        pass

    def record(self, entry):
        if not self.log_path:
            return
        with _log_lock, open(self.log_path, "a", encoding="utf-8") as log:
            log.write(json.dumps(entry) + "\n")

    def read_body(self):
        length = int(self.headers.get("Content-Length") or 0)
        raw = self.rfile.read(length) if length > 0 else b""
        if self.headers.get("Content-Encoding", "").lower() == "gzip":
            raw = gzip.decompress(raw)
        try:
            body = json.loads(raw or b"{}")
        except ValueError:
            body = {}
        return body if isinstance(body, dict) else {}

    def send(self, status, content_type, payload):
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(payload)))
        self.send_header("request-id", next_id("req"))
        self.end_headers()
        self.wfile.write(payload)

    def do_GET(self):
        self.record({"method": "GET", "path": self.path})
        self.send(404, "application/json", b'{"type":"error","error":{"type":"not_found_error","message":"none"}}')

    def do_HEAD(self):
        self.record({"method": "HEAD", "path": self.path})
        self.send_response(200)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def do_POST(self):
        body = self.read_body()
        path = self.path.split("?", 1)[0]
        entry = {"method": "POST", "path": self.path, "stream": bool(body.get("stream"))}
        if path.endswith("/count_tokens"):
            self.record(entry)
            self.send(200, "application/json", b'{"input_tokens": 12}')
            return
        if path.endswith("/v1/responses"):
            self.record(entry)
            self.send(200, "text/event-stream", responses_stream("Mirrowisp test"))
            return
        if not path.endswith("/v1/messages"):
            self.record(entry)
            self.send(404, "application/json", b'{"type":"error","error":{"type":"not_found_error","message":"none"}}')
            return
        messages = body.get("messages") if isinstance(body.get("messages"), list) else []
        answer = plan(body)
        model = body.get("model") if isinstance(body.get("model"), str) else MODEL
        entry.update(
            {
                "model": model,
                "tools": len(body.get("tools") or []),
                "messages": len(messages),
                "lastUserText": " | ".join(texts_of(last_user_message(body)))[-300:],
                "toolResults": tool_results_of(last_user_message(body)),
                "answer": list(answer),
            }
        )
        self.record(entry)
        if body.get("stream"):
            self.send(200, "text/event-stream", stream_body(answer, model))
        else:
            self.send(200, "application/json", whole_body(answer, model))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--log", help="file to append one JSON line per request to")
    args = parser.parse_args()
    Handler.log_path = args.log
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.daemon_threads = True
    print(server.server_address[1], flush=True)
    try:
        server.serve_forever()
    except KeyboardInterrupt:
        pass
    finally:
        server.server_close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
