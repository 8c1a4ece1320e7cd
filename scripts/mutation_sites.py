"""The places of C++ sources that mutants.py changes, and how.

Reads tokens, not grammar: it relies on the format that clang-format gives the sources. A place that it takes for
something else costs a mutant that does not compile.
"""
import collections
import re

Token = collections.namedtuple("Token", "kind text begin end")
Site = collections.namedtuple("Site", "file line begin end new description")

TOKEN = re.compile(r"""(?P<skipped>\s+|//[^\n]*|/\*.*?\*/|(?<![^\n])[ \t]*\#(?:\\\n|[^\n])*)
    |(?P<string>\w*R"(?P<mark>[^(]*)\(.*?\)(?P=mark)"|(?:u8|[uUL])?"(?:\\.|[^"\\])*"|(?:u8|[uUL])?'(?:\\.|[^'\\])*')
    |(?P<number>\.?\d(?:[eE][+-]|'\w|[\w.])*)
    |(?P<word>[A-Za-z_]\w*)
    |(?P<sign><=>|->\*?|::|\+\+|--|<<=?|>>=|&&|\|\||[-+*/%&|^=!<>]=|.)""", re.VERBOSE | re.DOTALL)
NUMBER = re.compile(r"(0[xX][\da-fA-F']+|0[bB][01']+|[\d.][\d.']*(?:[eE][+-]?\d+)?)(\w*)")
SWAPPED = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||", "||": "&&", "+": "-",
           "-": "+"}
TYPE_WORDS = {"namespace", "class", "struct", "union", "enum"}
KEYWORDS = {"return", "throw", "delete", "new", "if", "while", "for", "switch", "sizeof", "decltype", "static_assert",
            "catch", "case", "else", "do", "alignas", "noexcept", "co_return", "using", "goto", "and", "or", "not"}


def closing_brackets(tokens):
    """The index of each bracket's partner, in both directions."""
    partner, opened = {}, []
    for index, token in enumerate(tokens):
        if token.kind == "sign" and token.text in "([{":
            opened.append(index)
        elif token.kind == "sign" and token.text in ")]}":
            partner[index] = opened.pop()
            partner[partner[index]] = index
    return partner


def in_functions(tokens):
    """Whether each token is inside a function's body, where a name before brackets is a call."""
    inside, scopes, begin = [], [False], 0
    for index, token in enumerate(tokens):
        text = token.text if token.kind == "sign" else ""
        if text == "}":
            scopes.pop()
        inside.append(scopes[-1])
        if text == "{":
            head = " ".join(t.text for t in tokens[begin:index])
            head = re.sub(r"template < .*? >(?= \w)|\( .* \)", "", head)
            declares = not head or TYPE_WORDS & set(head.split())
            scopes.append(scopes[-1] or not declares)
        if text in ("{", ";"):
            begin = index + 1
    return inside


def end_of_template(texts, index):
    """The index behind the `>` that closes the `<` at `index`."""
    depth = 0
    while True:
        depth += {"<": 1, ">": -1}.get(texts[index], 0)
        index += 1
        if depth == 0:
            return index


def excluded(tokens, partner, inside):
    """Indices of tokens in log lines, static assertions, attributes and array sizes, and of the 0 of pure functions."""
    found = set()
    texts = [token.text for token in tokens]
    for index, text in enumerate(texts):
        before, following = texts[max(index - 2, 0):index], texts[index + 1:index + 4]
        if text == "static_assert" or (text == "getQorLogger" and following == ["(", ")", "->"]):
            found.update(range(index, texts.index(";", index)))
        elif text == "array" and following[0] == "<":
            found.update(range(index, end_of_template(texts, index + 1)))
        elif text == "[" and (following[0] == "[" or (len(before) == 2 and tokens[index - 1].kind == "word" and (
                before[0] in ("*", "&", ">") or (tokens[index - 2].kind == "word" and before[0] not in KEYWORDS)))):
            found.update(range(index, partner[index]))
        elif following[:2] == ["0", ";"] and text == "=" and before[-1] in (")", "const", "noexcept"):
            if not inside[index]:
                found.add(index + 1)
    return found


def changed_number(text):
    digits, suffix = NUMBER.fullmatch(text).groups()
    plain = digits.replace("'", "")
    if plain[:2] in ("0x", "0X"):
        return f"{int(plain, 16) + 1:#x}{suffix}"
    if plain[:2] in ("0b", "0B"):
        return f"{int(plain, 2) + 1:#b}{suffix}"
    if re.search("[.eE]", plain):
        return f"{float(plain) + max(1.0, float(plain) * 0.01)!r}{suffix}"  # visible in single precision
    return f"{int(plain, 8 if re.fullmatch('0[0-7]+', plain) else 10) + 1}{suffix}"


def end_of_call(tokens, partner, index):
    """The index of the semicolon, if the statement that begins at `index` is nothing but a call."""
    called = False
    while index < len(tokens) and tokens[index].kind == "word" and tokens[index].text not in KEYWORDS:
        index += 1
        called = tokens[index].text == "("
        while tokens[index].text in ("(", "["):
            index = partner[index] + 1
        if tokens[index].text not in ("::", ".", "->"):
            break
        index += 1
    return index if called and tokens[index].text == ";" else None


def sites_of(file, source):
    r"""All places of a source, in their order.

    >>> def changes(source):
    ...     return [f"{s.description}: {source[s.begin:s.end]!r} {s.new!r}" for s in sites_of("f", source)]
    >>> print(*changes("void f() { if (a < b && c) g(x)->h(); else return true; while (int n = 0x1F) {} }"), sep="\n")
    if condition negated: 'a < b && c' '!(a < b && c)'
    < to <=: '<' '<='
    && to ||: '&&' '||'
    call of g deleted: 'g(x)->h()' ''
    return true to return false: 'true' 'false'
    0x1F to 0x20: '0x1F' '0x20'
    >>> print(*changes("float a = 2.5F, b = 1'000; int g() { switch (c) { case d: e(); } x = y ? z : e(); }"), sep="\n")
    2.5F to 3.5F: '2.5F' '3.5F'
    1'000 to 1001: "1'000" '1001'
    call of e deleted: 'e()' ''
    >>> changes("#include <a> //1 < 2\n#define B 1 < 2 \\\n    + 3\n/*4 < 5*/ auto c = R\"x(6\")x\" \"\\\" + 8\" '\"';")
    []
    >>> changes("class A { A(); virtual void b() const = 0; char c[64]; }; std::array<std::array<int, 3>, 4> d;")
    []
    >>> changes("template <class T> void f(T&& t) { static_assert(1 < 2); getQorLogger()->info(\"\", 1 + 2); A a(b); }")
    []
    """
    tokens = [Token(m.lastgroup, m.group(), m.start(), m.end())
              for m in TOKEN.finditer(source) if m.lastgroup != "skipped"]
    partner = closing_brackets(tokens)
    inside = in_functions(tokens)
    skipped = excluded(tokens, partner, inside)

    def site(begin, end, new, description):
        return Site(file, source.count("\n", 0, begin) + 1, begin, end, new, description)

    def text(index):
        return tokens[index].text if 0 <= index < len(tokens) else ""

    for index, token in enumerate(tokens):
        begin, end = token.begin, token.end
        if index in skipped:
            continue
        # The formatter puts blanks around binary operators, and none inside the brackets of templates.
        if token.text in SWAPPED and source[begin - 1].isspace() and source[end].isspace():
            new = SWAPPED[token.text]
            yield site(begin, end, new, f"{token.text} to {new}")
        elif token.kind == "number":
            new = changed_number(token.text)
            yield site(begin, end, new, f"{token.text} to {new}")
        elif token.text in ("true", "false") and text(index - 1) == "return" and text(index + 1) == ";":
            new = "false" if token.text == "true" else "true"
            yield site(begin, end, new, f"return {token.text} to return {new}")
        elif token.text in ("if", "while") and text(index + 1) == "(":
            condition = tokens[index + 2:partner[index + 1]]
            first = max((i + 1 for i, t in enumerate(condition) if t.text == ";"), default=0)
            if all(t.text != "=" for t in condition[first:]):  # a declaration can't be negated
                begin, end = condition[first].begin, condition[-1].end
                yield site(begin, end, f"!({source[begin:end]})", f"{token.text} condition negated")
        elif inside[index] and token.kind == "word":
            starts = text(index - 1) in (";", "{", "}", "else", "do") or (
                text(index - 1) == ":" and {"case", "default"} & {text(i) for i in range(index - 6, index)}) or (
                text(index - 1) == ")" and text(partner[index - 1] - 1) in ("if", "for", "while"))
            last = end_of_call(tokens, partner, index) if starts else None
            if last:
                yield site(begin, tokens[last].begin, "", f"call of {source[begin:source.index('(', begin)]} deleted")
