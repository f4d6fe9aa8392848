#!/usr/bin/env python3
"""Makes protocol.md, the page for readers, from openapi.yaml beside it.

usage: make_page.py [--check]

With --check it writes nothing, and fails if the page is out of date.
"""

import json
import os
import sys

import yaml

HERE = os.path.dirname(os.path.realpath(__file__))
SOURCE = os.path.join(HERE, "openapi.yaml")
PAGE = os.path.join(HERE, "protocol.md")
METHODS = ("get", "post", "put", "delete")
# Headers of every operation, described once.
EVERYWHERE = {"X-Request-Id"}


class Timestamps_Stay_Text(yaml.SafeLoader):
    """YAML that leaves timestamps as text."""


Timestamps_Stay_Text.yaml_implicit_resolvers = {
    first: [(tag, expression) for tag, expression in resolvers
            if tag != "tag:yaml.org,2002:timestamp"]
    for first, resolvers in yaml.SafeLoader.yaml_implicit_resolvers.items()
}


def code(text):
    return f"`{text}`"


def cell(text):
    return " ".join(str(text).split()).replace("|", "\\|")


def table(heads, rows):
    if not rows:
        return []
    lines = [heads, ["---"] * len(heads)] + [[cell(field) for field in row] for row in rows]
    return ["| " + " | ".join(line) + " |" for line in lines] + [""]


class Page:
    def __init__(self, document):
        self.document = document
        self.lines = []

    def follow(self, node):
        while "$ref" in node:
            place = self.document
            for step in node["$ref"].removeprefix("#/").split("/"):
                place = place[step]
            node = place
        return node

    def kind(self, schema):
        """A short name of a schema."""
        reference = schema.get("$ref", "")
        if reference.startswith("#/components/schemas/") and reference.count("/") == 3:
            name = reference.rsplit("/", 1)[1]
            return f"[{name}](#{name.lower()})"
        schema = self.follow(schema)
        if "allOf" in schema:
            return " and ".join(self.kind(part) for part in schema["allOf"])
        if "oneOf" in schema:
            return " or ".join(self.kind(part) for part in schema["oneOf"])
        if "enum" in schema:
            return " or ".join(code(json.dumps(value)) for value in schema["enum"])
        kind = schema.get("type", "anything")
        if kind == "array":
            return "list of " + self.kind(schema.get("items", {}))
        return kind + self.bounds(schema)

    @staticmethod
    def bounds(schema):
        if "minimum" in schema and "maximum" in schema:
            return f", {schema['minimum']} to {schema['maximum']}"
        if "minimum" in schema:
            return f", at least {schema['minimum']}"
        if "maximum" in schema:
            return f", at most {schema['maximum']}"
        if "maxLength" in schema:
            return f", {schema.get('minLength', 0)} to {schema['maxLength']} bytes"
        return ", not empty" if schema.get("minLength") == 1 else ""

    def members(self, schema, prefix=""):
        """Rows for an object's members, and for those of the objects in it."""
        required = schema.get("required", [])
        for name, member in schema.get("properties", {}).items():
            told = self.follow(member)
            text = member.get("description", told.get("description", ""))
            if "default" in told:
                text += f" ({json.dumps(told['default'])} when absent)"
            yield [code(prefix + name), self.kind(member), "yes" if name in required else "", text]
            if "$ref" in member:
                continue
            if "properties" in told:
                yield from self.members(told, f"{prefix}{name}.")
            items = told.get("items", {})
            if "$ref" not in items and "properties" in items:
                yield from self.members(items, f"{prefix}{name}[].")
        more = schema.get("additionalProperties")
        if isinstance(more, dict):
            yield [f"{prefix}*any name*", self.kind(more), "", more.get("description", "")]

    def write(self, *lines):
        self.lines.extend(lines)

    def schema(self, schema, what):
        """Describes a body by the name of its schema, or member by member."""
        reference = schema.get("$ref", "").startswith("#/components/schemas/")
        told = self.follow(schema)
        if not reference and "oneOf" in told:
            for number, choice in enumerate(told["oneOf"]):
                self.schema(choice, what if number == 0 else "or")
            return
        if reference or not told.get("properties"):
            self.write(f"{what}: {self.kind(schema)}", "")
            items = told.get("items", {}) if not reference else {}
            if "properties" in items:
                self.write(*table(("member", "type", "required", ""), list(self.members(items))))
            return
        self.write(f"{what}: an object", "")
        self.write(*table(("member", "type", "required", ""), list(self.members(told))))

    def example(self, holder):
        if "example" in holder:
            text = json.dumps(holder["example"], indent=2, ensure_ascii=False)
            self.write("```json", text, "```", "")

    def operation(self, path, method, operation):
        self.write(f"### {method.upper()} {path}", "", f"**{operation['summary']}.** "
                   + operation.get("description", "").strip(), "")
        parameters = [self.follow(each) for each in operation.get("parameters", [])]
        rows = []
        for each in parameters:
            if each["name"] in EVERYWHERE:
                continue
            text = each.get("description", "")
            if "default" in each["schema"]:
                text += f" ({json.dumps(each['schema']['default'])} when absent)"
            rows.append([code(each["name"]), self.kind(each["schema"]),
                         "yes" if each.get("required") else "", text])
        self.write(*table(("query", "type", "required", ""), rows))
        if "requestBody" in operation:
            content = self.follow(operation["requestBody"])["content"]["application/json"]
            self.schema(content["schema"], "Body")
            self.example(content)
        for status, answer in operation["responses"].items():
            if status == "default":
                continue
            answer = self.follow(answer)
            content = answer.get("content", {}).get("application/json")
            told = answer["description"].strip()
            if content is None:
                self.write(f"Answer {status}, no body: {told}", "")
                continue
            self.schema(content["schema"], f"Answer {status} ({told})")
            self.example(content)

    def make(self):
        document = self.document
        self.write(f"# {document['info']['title']}", "",
                   "<!-- Made from openapi.yaml by make_page.py; edit that. -->", "",
                   document["info"]["description"].strip(), "",
                   "**Errors**: " + self.follow(
                       document["components"]["responses"]["Refusal"])["description"].strip()
                   + " The body is [Error](#error).", "", "## Operations", "")
        rows = []
        for path, methods in document["paths"].items():
            for method in METHODS:
                if method in methods:
                    title = f"{method.upper()} {path}"
                    anchor = title.lower().replace("/", "").replace(" ", "-")
                    rows.append([f"[{title}](#{anchor})", methods[method]["summary"]])
        self.write(*table(("request", ""), rows))
        for tag in document["tags"]:
            self.write(f"## {tag['name'].capitalize()}", "", tag["description"].strip(), "")
            for path, methods in document["paths"].items():
                for method in METHODS:
                    if method in methods and tag["name"] in methods[method]["tags"]:
                        self.operation(path, method, methods[method])
        self.write("## Types", "")
        for name, schema in document["components"]["schemas"].items():
            self.write(f"### {name}", "")
            if "description" in schema:
                self.write(schema["description"].strip(), "")
            if "properties" in schema:
                self.write(*table(("member", "type", "required", ""), list(self.members(schema))))
            else:
                text = self.kind(schema)
                pattern = schema.get("pattern")
                self.write(text + (f", matching {code(pattern)}" if pattern else ""), "")
            self.example(schema)
        while self.lines[-1] == "":
            self.lines.pop()
        return "\n".join(self.lines) + "\n"


def main():
    with open(SOURCE, encoding="utf-8") as source:
        page = Page(yaml.load(source, Timestamps_Stay_Text)).make()
    if "--check" not in sys.argv[1:]:
        with open(PAGE, "w", encoding="utf-8") as out:
            out.write(page)
        return 0
    try:
        with open(PAGE, encoding="utf-8") as current:
            if current.read() == page:
                return 0
    except FileNotFoundError:
        pass
    print("docs/protocol/protocol.md is not what docs/protocol/openapi.yaml says: "
          "run docs/protocol/make_page.py")
    return 1


if __name__ == "__main__":
    sys.exit(main())
