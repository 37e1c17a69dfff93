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


def blocks_of(message, kind):
    """The content blocks of one kind in a message; a plain string is one text block."""
    content = message.get("content") if isinstance(message, dict) else None
    if isinstance(content, str):
        content = [{"type": "text", "text": content}]
    return [b for b in content if isinstance(b, dict) and b.get("type") == kind] if isinstance(content, list) else []


def last_user_message(body):
    # The CLI may put messages of other roles (such as "system") after the user's turn.
    messages = body.get("messages") if isinstance(body.get("messages"), list) else []
    users = [m for m in messages if isinstance(m, dict) and m.get("role") == "user"]
    return users[-1] if users else {}


def plan(body):
    """Decides the answer: ("tool", command) or ("text", words)."""
    last = last_user_message(body)
    results = blocks_of(last, "tool_result")
    if results:
        return ("text", "The command was refused." if any(r.get("is_error") for r in results) else "The command ran.")
    tools = body.get("tools") if isinstance(body.get("tools"), list) else []
    if any(isinstance(t, dict) and t.get("name") == "Bash" for t in tools):
        for block in blocks_of(last, "text"):
            found = TRIGGER.search(str(block.get("text", "")))
            if found:
                return ("tool", found.group(1))
    return ("text", "Mirrowisp test")


def message_json(content, stop_reason, model, usage=None):
    return {
        "id": next_id("msg"), "type": "message", "role": "assistant", "model": model, "content": content,
        "stop_reason": stop_reason, "stop_sequence": None, "usage": usage or {"input_tokens": 12, "output_tokens": 6},
    }


def answer_block(answer):
    """The content block of the answer, and its stop reason."""
    if answer[0] == "tool":
        tool_input = {"command": answer[1], "description": "Run the requested command"}
        return {"type": "tool_use", "id": next_id("toolu"), "name": "Bash", "input": tool_input}, "tool_use"
    return {"type": "text", "text": answer[1]}, "end_turn"


def stream_body(answer, model):
    """The answer as server-sent events: the block starts empty and its whole content comes as one delta."""
    block, stop_reason = answer_block(answer)
    if block["type"] == "tool_use":
        delta = {"type": "input_json_delta", "partial_json": json.dumps(block.pop("input"))}
        block["input"] = {}
    else:
        delta = {"type": "text_delta", "text": block["text"]}
        block["text"] = ""
    events = [
        ("message_start", {"message": message_json([], None, model, {"input_tokens": 12, "output_tokens": 1})}),
        ("content_block_start", {"index": 0, "content_block": block}),
        ("content_block_delta", {"index": 0, "delta": delta}),
        ("content_block_stop", {"index": 0}),
        ("message_delta",
         {"delta": {"stop_reason": stop_reason, "stop_sequence": None}, "usage": {"output_tokens": 6}}),
        ("message_stop", {}),
    ]
    return b"".join(("event: %s\ndata: %s\n\n" % (name, json.dumps(dict(data, type=name)))).encode()
                    for name, data in events)


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
    return b"".join(("event: %s\ndata: %s\n\n" % (e["type"], json.dumps(e))).encode() for e in events)


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    log_path = None
    NOT_FOUND = b'{"type":"error","error":{"type":"not_found_error","message":"none"}}'

    def log_message(self, format, *args):  # noqa: A002 - the base class's signature
        pass

    def record(self, entry):
        if self.log_path:
            with _log_lock, open(self.log_path, "a", encoding="utf-8") as log:
                log.write(json.dumps(dict(entry, method=self.command, path=self.path)) + "\n")

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
        self.record({})
        self.send(404, "application/json", self.NOT_FOUND)

    def do_HEAD(self):
        self.record({})
        self.send_response(200)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def do_POST(self):
        body = self.read_body()
        path = self.path.split("?", 1)[0]
        if path.endswith("/count_tokens"):
            self.record({})
            return self.send(200, "application/json", b'{"input_tokens": 12}')
        if path.endswith("/v1/responses"):
            self.record({})
            return self.send(200, "text/event-stream", responses_stream("Mirrowisp test"))
        if not path.endswith("/v1/messages"):
            self.record({})
            return self.send(404, "application/json", self.NOT_FOUND)
        answer = plan(body)
        model = body.get("model") if isinstance(body.get("model"), str) else MODEL
        last = last_user_message(body)
        texts = " | ".join(str(b.get("text", "")) for b in blocks_of(last, "text"))[-300:]
        self.record({"stream": bool(body.get("stream")), "model": model, "answer": list(answer), "lastUserText": texts,
                     "toolResults": blocks_of(last, "tool_result")})
        if body.get("stream"):
            self.send(200, "text/event-stream", stream_body(answer, model))
        else:
            block, stop_reason = answer_block(answer)
            self.send(200, "application/json", json.dumps(message_json([block], stop_reason, model)).encode())


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--log", help="file to append one JSON line per request to")
    args = parser.parse_args()
    Handler.log_path = args.log
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.daemon_threads = True
    print(server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    sys.exit(main())
