"""What tools/mutate changes in a source: a small tokenizer for C++ as clang-format leaves it, the mutants that it finds
there, and the source in which all of them stand at once."""

import bisect
import dataclasses
import re

TOKEN = re.compile(
    r"""(?P<space>\s+)
    |(?P<comment>//[^\n]*|/\*.*?\*/)
    |(?P<text>(?:u8|[uUL])?"(?:[^"\\\n]|\\.)*"(?:[a-z]\w*)?)
    |(?P<char>'(?:[^'\\\n]|\\.)+')
    |(?P<number>(?:0[xX][0-9a-fA-F']+|0[bB][01']+|\d[\d']*(?:\.\d+)?(?:[eE][+-]?\d+)?|\.\d+)\w*)
    |(?P<word>[A-Za-z_]\w*)
    |(?P<sign><=>|<<=|>>=|\.\.\.|->\*|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)""",
    re.VERBOSE | re.DOTALL,
)
RAW_TEXT = re.compile(r'(?:u8|[uUL])?R"([^(\s]*)\(.*?\)\1"\w*', re.DOTALL)
DIRECTIVE = re.compile(r"[ \t]*#(?:[^\n]*\\\n)*[^\n]*")
CLOSING = {"(": ")", "[": "]", "{": "}"}

# How strongly the operators bind; what ends an operand is weaker than all.
BINDS = {"*": 10, "/": 10, "%": 10, "+": 9, "-": 9, "<<": 8, ">>": 8, "<=>": 7.5, "<": 7, "<=": 7, ">": 7, ">=": 7, "==": 6,
         "!=": 6, "&": 5, "^": 4, "|": 3, "&&": 2, "||": 1}
ASSIGNMENTS = {"=", "+=", "-=", "*=", "/=", "%=", "&=", "|=", "^=", "<<=", ">>="}
WEAKEST = ASSIGNMENTS | {"?", ":", ",", ";"}
BEFORE_OPERAND = {"return", "throw", "co_return", "case", "else", "do", "new", "delete"}
OTHER_SIGN = {"<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"], "==": ["!="], "!=": ["=="],
              "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"], "<<": [">>"], ">>": ["<<"], "&": ["|"],
              "^": ["|"], "+=": ["-="], "-=": ["+="], "*=": ["+="], "/=": ["*="], "%=": ["="], "&=": ["|="], "|=": ["&="],
              "^=": ["|="], "<<=": [">>="], ">>=": ["<<="]}
ONE_SIDE = {"&&", "||", "|"}  # one of the operands in place of both
STATEMENT_WORDS = {"return", "break", "continue", "throw", "goto", "using", "typedef", "static_assert", "constexpr", "static",
                   "const", "auto", "unsigned", "signed", "int", "long", "short", "char", "bool", "double", "float", "struct",
                   "class", "enum", "union", "thread_local", "extern", "delete", "template", "namespace", "friend", "public",
                   "private", "protected", "asm", "co_return", "typename", "volatile", "register", "void"}
BRANCHES = {"if", "while", "for", "switch", "do", "try"}


@dataclasses.dataclass
class Token:
    kind: str
    text: str
    start: int
    end: int
    tight: bool = False  # no blank before it


@dataclasses.dataclass
class Mutant:
    """One change: `text` in place of what stands from `start` to `end`."""

    start: int
    end: int
    text: str
    kind: str
    how: str = "value"  # "value": an expression; "statement"; "slot": a statement, with texts per neighbour
    group: int | None = None  # the start of the constant's definition that it changes
    id: int = 0
    after: int | None = None  # of a swap: the second statement's start
    of_member: bool = False  # what a member of a class begins with


class Source:
    def __init__(self, text):
        self.text = text
        self.tokens = []
        self.directives = []
        self.mutants = []
        self.constants = {}  # start of `constexpr` -> (end of what is replaced, replacement, name)
        self._tokenize()
        self._match()
        self._skipped = self._skip_marks()
        if self.tokens:
            self._scope(0, len(self.tokens))
        self._unique()

    # --- tokens

    def _tokenize(self):
        at, text, blank = 0, self.text, True
        line_begins = True
        while at < len(text):
            if line_begins and (match := DIRECTIVE.match(text, at)):
                self.directives.append((at, match.end()))
                at, blank = match.end(), True
                continue
            match = RAW_TEXT.match(text, at)
            kind = "text" if match else None
            if not match:
                match = TOKEN.match(text, at)
                kind = match.lastgroup
            if kind in ("space", "comment"):
                blank = True
                line_begins = "\n" in match.group() if kind == "space" else line_begins
            else:
                self.tokens.append(Token(kind, match.group(), at, match.end(), not blank))
                blank = line_begins = False
            at = match.end()

    def _match(self):
        """The other bracket of each; `<` and `>` of templates too, which clang-format sets without blanks."""
        self.other = {}
        opened, angles = [], []
        for at, token in enumerate(self.tokens):
            if token.text in CLOSING:
                opened.append((at, len(angles)))
            elif token.text in CLOSING.values() and opened:
                begin, depth = opened.pop()
                del angles[depth:]
                self.other[begin], self.other[at] = at, begin
            elif token.text == "<" and at > 0 and (token.tight or self.tokens[at - 1].text == "template"):
                angles.append(at)
            elif token.text in (">", ">>") and token.tight and len(angles) > (opened[-1][1] if opened else 0):
                for _ in token.text:
                    if angles:
                        begin = angles.pop()
                        self.other[begin], self.other[at] = at, begin

    def is_operator(self, at):
        """Whether the sign stands between two operands."""
        token = self.tokens[at]
        if token.kind != "sign" or token.text not in BINDS and token.text not in ASSIGNMENTS or at in self.other:
            return False
        if at == 0 or at + 1 >= len(self.tokens) or token.tight or self.tokens[at + 1].tight:
            return False
        before = self.tokens[at - 1]
        return before.kind in ("word", "number", "text", "char") and before.text not in BEFORE_OPERAND or before.text in (")", "]", "}", ">", "++", "--")

    def _skip_marks(self):
        """What is left alone: template heads, enumerations, static assertions, attributes."""
        marks = set()
        tokens = self.tokens
        for at, token in enumerate(tokens):
            end = None
            following = tokens[at + 1].text if at + 1 < len(tokens) else ""
            if token.text in ("static_assert", "decltype", "noexcept", "alignas", "__attribute__", "sizeof", "requires") and following == "(":
                end = self.other.get(at + 1)
            elif token.text == "if" and following == "constexpr":
                end = self.other.get(at + 2)
            elif token.text == "[" and following == "[":
                end = self.other.get(at)
            elif token.text == "enum":
                while at < len(tokens) and tokens[at].text not in "{;":
                    at += 1
                end = self.other.get(at)
            elif token.text == "case":
                end = at
                while tokens[end].text != ":":
                    end += 1
            elif token.text in ("using", "typedef", "friend", "extern") and (token.text != "extern" or tokens[at + 1].kind == "text"):
                end = at + 1
                if token.text != "extern":
                    while tokens[end].text != ";":
                        end += 1
            elif token.text == "operator":
                end = at + 1
            elif token.text == "<" and at in self.other:
                end = self.other[at]
            if end is not None:
                marks.update(range(at, end + 1))
        return marks

    # --- what is where

    def _head(self, at, low):
        """The first token of what ends before the brace at `at`."""
        begin = at
        while begin > low and self.tokens[begin - 1].text not in (";", "{", "}"):
            begin = self.other[begin - 1] if self.tokens[begin - 1].text in (")", "]") and begin - 1 in self.other else begin - 1
        return begin

    def _scope(self, low, high):
        """Of a namespace or a class: its functions and constants."""
        at = begin = low
        while at < high:
            text = self.tokens[at].text
            if text == "{" and at in self.other:
                end = self.other[at]
                head = [self.tokens[k].text for k in range(begin, at)]
                before = head[-1] if head else ""
                outer = [self.tokens[k].text for k in range(begin, at) if not self._in_brackets(k, begin)]
                if "enum" in outer:
                    at = end + 1
                    continue
                if "(" not in outer and any(word in outer for word in ("namespace", "class", "struct", "union")) or head[:1] == ["extern"] and before.startswith('"'):
                    outside, self._in_class = self._in_class, "namespace" not in outer and "extern" not in outer
                    self._scope(at + 1, end)
                    self._in_class = outside
                    at = end + 1
                    begin = at
                    continue
                if "(" in outer and "=" not in outer and (before in (")", "const", "noexcept", "override", "final", "try", "}", ">") or "->" in outer):
                    # Of a constructor's list of members, the braces: `: a{1}, b{2} {`.
                    following = self.tokens[end + 1].text if end + 1 < high else ""
                    if following in (",", "{") and before not in (")", "}"):
                        at = end + 1
                        continue
                    outside, self._in_class = self._in_class, False
                    self._members(begin, at)
                    self._block(at, end)
                    self._in_class = outside
                    at = end + 1
                    begin = at
                    continue
                if "(" in outer and ":" in outer:  # a member in braces of such a list
                    at = end + 1
                    continue
                at = end + 1
                continue
            if text == ";":
                self._definition(begin, at)
                begin = at + 1
            elif text == ":" and at > begin and self.tokens[at - 1].text in ("public", "private", "protected"):
                begin = at + 1
            elif text in ("(", "[") and at in self.other:
                at = self.other[at]
            at += 1

    def _in_brackets(self, at, low):
        begin = at - 1
        while begin >= low:
            if self.tokens[begin].text in (")", "]", "}") and begin in self.other:
                begin = self.other[begin] - 1
                continue
            if self.tokens[begin].text in ("(", "[", "{"):
                return True
            if begin in self.other and self.other[begin] > at:
                return True
            begin -= 1
        return False

    def _members(self, begin, end):
        """What a constructor's list gives the members."""
        at = begin
        while at < end and not (self.tokens[at].text == ":" and not self._in_brackets(at, begin)):
            at += 1
        if at < end:
            self._values(at + 1, end)

    def _definition(self, begin, end):
        """A variable or a constant, with what it begins with."""
        tokens = self.tokens[begin:end]
        words = [token.text for token in tokens]
        if not words or words[0] in ("using", "typedef", "template", "friend", "static_assert", "extern", "enum", "class", "struct"):
            return
        at = begin
        while at < end and not (self.tokens[at].text in ("=", "{", "(") and at not in self._skipped):
            at += 1
        if at >= end or self.tokens[at].text == "(":
            if at < end and "constexpr" in words:
                pass
            return
        if at + 1 < end and self.tokens[at + 1].text in ("default", "delete", "0") and "virtual" in words or self.tokens[at - 1].text in (")", "const"):
            return
        self._declared(begin, at, end)

    def _declared(self, begin, at, end):
        """A variable whose initial value begins at `at`; a constant one becomes one that is computed."""
        group = None
        words = [token.text for token in self.tokens[begin:at]]
        if "constexpr" in words or "constinit" in words:
            if "constinit" in words:
                return
            group = self._constant(begin, at)
            if group is None:
                return
        count = len(self.mutants)
        self._values(at, end)
        for mutant in self.mutants[count:]:
            mutant.group = group
            mutant.of_member = self._in_class

    def _constant(self, begin, at):
        first = begin + [token.text for token in self.tokens[begin:at]].index("constexpr")
        name = at - 1
        array = self.tokens[name].text == "]"
        if array:
            name = self.other[name] - 1
        start = self.tokens[first].start
        name_token = self.tokens[name]
        if name_token.kind != "word":
            return None
        between = self.text[self.tokens[first].end:name_token.start]
        inside = any(token.text == "static" for token in self.tokens[begin:first])
        inline = "inline " if inside and self._in_class else ""
        if array and self.tokens[at].text == "=" and self.tokens[at + 1].kind == "text":
            self.constants[start] = (self.tokens[at - 1].end, f"{inline}const auto& {name_token.text}", name_token.text)
        elif "*" in between:
            self.constants[start] = (name_token.start, inline + between.strip() + " const ", name_token.text)
        else:
            self.constants[start] = (self.tokens[first].end, inline + "const", name_token.text)
        return start

    _in_class = False

    def _block(self, begin, end):
        """The statements between two braces."""
        at = begin + 1
        before = None
        while at < end:
            at, found = self._statement(at, end)
            if before and found and "(" in self.text[before[0]:before[1]] and "(" in self.text[found[0]:found[1]]:
                self.mutants.append(Mutant(before[0], before[1], self._flat(*found), "swapped statements", "slot", after=found[0]))
                self.mutants[-1].second = found
            before = found

    def _statement(self, at, end):
        """@return where the next one begins, and where this one stands if it could be left out"""
        tokens = self.tokens
        text = tokens[at].text
        if text == "{" and at in self.other:
            self._block(at, self.other[at])
            return self.other[at] + 1, None
        if text in ("if", "while", "for", "switch", "catch"):
            opening = at + 1
            while tokens[opening].text != "(":
                opening += 1
            closing = self.other[opening]
            if text in ("if", "while", "switch") and opening not in self._skipped:
                self._condition(opening + 1, closing, text)
            elif text == "for":
                self._head_of_loop(opening + 1, closing)
            following, _ = self._statement(closing + 1, end)
            if text == "if" and tokens[closing + 1].text == "{":
                self._way_out(closing + 1, self.other[closing + 1], end)
            return following, None
        if text in ("else", "do", "try"):
            return self._statement(at + 1, end)
        if text in ("case", "default") and (text == "case" or tokens[at + 1].text == ":"):
            while tokens[at].text != ":":
                at += 1
            return at + 1, None
        stop = at
        while stop < end and tokens[stop].text != ";":
            stop = self.other[stop] + 1 if tokens[stop].text in CLOSING and stop in self.other else stop + 1
        span = (tokens[at].start, tokens[min(stop, len(tokens) - 1)].end)
        if text == ";":
            return stop + 1, None
        if text in ("static_assert", "using", "typedef"):
            return stop + 1, None
        if text in ("break", "continue") or text == "return" and stop == at + 1:
            self._leave_out(span, f"left out: {text}")
            return stop + 1, None
        if text in ("return", "throw"):
            self._values(at + 1, stop)
            return stop + 1, None
        if self._is_declaration(at, stop):
            value = at
            while value < stop and not (tokens[value].text in ("=", "{", "(", "[") and value not in self._skipped):
                value += 1
            if tokens[min(value, stop)].text == "[" and tokens[value - 1].text != "auto":  # an array
                value = self.other[value] + 1
            if value < stop:
                self._declared(at, value, stop)
            return stop + 1, None
        self._leave_out(span, "left out")
        self._values(at, stop)
        return stop + 1, span

    def _leave_out(self, span, kind):
        self.mutants.append(Mutant(span[0], span[1], "", kind, "statement"))

    def _way_out(self, begin, end, outer):
        """The return at the end of an `if` behind which something follows."""
        at = last = begin + 1
        while at < end:
            last = at
            at, _ = self._quiet_statement(at, end)
        following = self.tokens[end + 1].text if end + 1 < outer else "}"
        if self.tokens[last].text == "return" and self.tokens[last + 1].text != ";" and following not in ("else", "}") and last < end:
            stop = self._stop(last, end)
            self._leave_out((self.tokens[last].start, self.tokens[stop].end), "left out: return")

    def _stop(self, at, end):
        while at < end and self.tokens[at].text != ";":
            at = self.other[at] + 1 if self.tokens[at].text in CLOSING and at in self.other else at + 1
        return at

    def _quiet_statement(self, at, end):
        kept, self.mutants = self.mutants, []
        constants = dict(self.constants)
        result = self._statement(at, end)
        self.mutants, self.constants = kept, constants
        return result

    def _is_declaration(self, at, stop):
        tokens = self.tokens
        if tokens[at].text in STATEMENT_WORDS or tokens[at].text == "[":
            return tokens[at].text != "delete"
        if tokens[at].kind != "word":
            return False
        while True:
            at += 1
            if at < stop and tokens[at].text == "<" and at in self.other:
                at = self.other[at] + 1
            if at + 1 < stop and tokens[at].text == "::":
                at += 1
                continue
            break
        while at < stop and tokens[at].text in ("&", "*", "&&", "const"):
            at += 1
        return at < stop and tokens[at].kind == "word" or at < stop and tokens[at].text == "[" and tokens[at - 1].text in ("&", "auto")

    def _condition(self, low, high, word):
        at = self._stop(low, high)
        if at < high:  # with a statement before it
            self._statement(low, high)
            low = at + 1
        if self._is_declaration(low, high) and any(self.tokens[k].text == "=" for k in range(low, high)):
            self._values(low, high)
            return
        if word != "switch":
            self._negate(low, high)
        self._values(low, high)

    def _negate(self, low, high):
        at = low
        while at < high:
            if self.is_operator(at) and (self.tokens[at].text in ONE_SIDE or len(OTHER_SIGN.get(self.tokens[at].text, [])) > 0 and BINDS.get(self.tokens[at].text, 0) in (6, 7)):
                return  # these have mutants of their own
            at = self.other[at] + 1 if self.tokens[at].text in CLOSING and at in self.other else at + 1
        if self.tokens[low].text == "!" or self.tokens[low].text in ("true", "false"):
            return
        self._value(low, high, f"!({self._flat_tokens(low, high)})", "negated")

    def _head_of_loop(self, low, high):
        first = self._stop(low, high)
        if first >= high:  # over a range
            self._values(low, high)
            return
        if first > low:
            self._values(low, first)
        second = self._stop(first + 1, high)
        if second > first + 1:
            self._values(first + 1, second)
        self._values(second + 1, high)

    # --- expressions

    def _value(self, low, high, text, kind):
        self.mutants.append(Mutant(self.tokens[low].start, self.tokens[high - 1].end, text, kind))

    def _flat(self, start, end):
        """The text without comments and line ends; None where a directive stands in it."""
        if any(begin < end and start < stop for begin, stop in self.directives):
            return None
        out, last = "", None
        first = bisect.bisect_left(self.tokens, start, key=lambda token: token.start)
        for token in self.tokens[first:]:
            if token.start >= end:
                break
            out += (" " if last is not None and not token.tight else "") + token.text
            last = token
        return out

    def _flat_tokens(self, low, high):
        return self._flat(self.tokens[low].start, self.tokens[high - 1].end) if high > low else ""

    def _left(self, at, low, weakest):
        k = at
        while k > low:
            before = k - 1
            text = self.tokens[before].text
            if text in (")", "]", "}", ">", ">>") and before in self.other:
                k = self.other[before]
                if k < low:
                    return None
                continue
            if text in ("(", "[", "{") or text in WEAKEST or text in BEFORE_OPERAND:
                break
            if self.is_operator(before) and BINDS.get(text, 0) < weakest:
                break
            k = before
        return k

    def _right(self, at, high, weakest):
        k = at + 1
        while k < high:
            text = self.tokens[k].text
            if text in ("(", "[", "{", "<") and k in self.other:
                k = self.other[k] + 1
                continue
            if text in (")", "]", "}") or text in WEAKEST:
                break
            if self.is_operator(k) and BINDS.get(text, 0) <= weakest:
                break
            k += 1
        return k

    def _values(self, low, high):
        """The expressions among these tokens, and the statements of functions that stand in them."""
        at = low
        while at < high:
            if at in self._skipped:
                at += 1
                continue
            token = self.tokens[at]
            if token.text == "{" and at in self.other and self._is_body(at):
                self._block(at, self.other[at])
                at = self.other[at] + 1
                continue
            if token.kind == "number":
                self._number(at)
            elif token.kind == "char":
                self._value(at, at + 1, changed_char(token.text), "character")
            elif token.kind == "text":
                end = at + 1
                while end < high and self.tokens[end].kind == "text":
                    end += 1
                if (text := changed_text(token.text)) is not None:
                    rest = self._flat_tokens(at + 1, end)
                    self._value(at, end, text + (" " + rest if rest else ""), "text")
                at = end
                continue
            elif token.text in ("true", "false"):
                self._value(at, at + 1, "false" if token.text == "true" else "true", "constant")
            elif token.text == "!" and self.tokens[at + 1].tight:
                end = self._operand_end(at + 1, high)
                self._value(at, end, as_bool(self._flat_tokens(at + 1, end)), "not negated")
            elif token.text == "?":
                begin = self._left(at, low, 0)
                if begin is not None and begin < at:
                    self._negate(begin, at)
            elif self.is_operator(at) and token.text in BINDS:
                self._operator(at, low, high)
            elif self.is_operator(at) and token.text in OTHER_SIGN:
                self._assignment(at, low, high)
            at += 1

    def _is_body(self, at):
        """Of a lambda."""
        before = self.tokens[at - 1].text
        if before in ("]", ")", "mutable", "noexcept"):
            k = at - 1
            while self.tokens[k].text in ("mutable", "noexcept"):
                k -= 1
            if self.tokens[k].text == ")":
                k = self.other[k] - 1
            if self.tokens[k].text == ">" and k in self.other:
                k = self.other[k] - 1
            return self.tokens[k].text == "]"
        k = at - 1
        while k > 0 and (self.tokens[k].kind == "word" or self.tokens[k].text in ("::", ">", "*", "&") or k in self.other and self.tokens[k].text == "<"):
            if self.tokens[k].text == ">" and k in self.other:
                k = self.other[k]
            k -= 1
        return self.tokens[k].text == "->" and self.tokens[k - 1].text in (")", "mutable")

    def _operand_end(self, at, high):
        while at < high:
            token = self.tokens[at]
            if token.text in ("(", "[", "<", "{") and at in self.other:
                at = self.other[at] + 1
            elif token.kind in ("word", "number") or token.text in ("::", ".", "->", "*", "!"):
                at += 1
            else:
                break
        return at

    def _operator(self, at, low, high):
        sign = self.tokens[at].text
        if sign in ("<<", ">>") and self._is_stream(low, high):
            return
        begin, end = self._left(at, low, BINDS[sign]), self._right(at, high, BINDS[sign])
        if begin is None or begin >= at or end <= at + 1:
            return
        left, right = self._flat_tokens(begin, at), self._flat_tokens(at + 1, end)
        if left is None or right is None:
            return
        for other in OTHER_SIGN.get(sign, []):
            if BINDS[other] == BINDS[sign] or BINDS[other] > 5:
                changed = f"{left} {other} {right}"
            else:
                changed = f"({left}) {other} ({right})"
            self._value(begin, end, changed, f"{sign} became {other}")
        if sign in ONE_SIDE:
            alone = str if sign == "|" else as_bool
            self._value(begin, end, alone(left), f"without: {sign} {right}")
            self._value(begin, end, alone(right), f"without: {left} {sign}")

    def _assignment(self, at, low, high):
        begin, end = self._left(at, low, 0), self._right(at, high, -1)
        if begin is None or begin >= at or end <= at + 1:
            return
        left, right = self._flat_tokens(begin, at), self._flat_tokens(at + 1, end)
        if left is None or right is None:
            return
        for other in OTHER_SIGN[self.tokens[at].text]:
            self._value(begin, end, f"{left} {other} {right}", f"{self.tokens[at].text} became {other}")

    def _is_stream(self, low, high):
        words = {self.tokens[k].text for k in range(low, high)}
        return bool(words & {"endl", "Logger", "LogType", "stream", "out", "hex", "dec"}) or any(self.tokens[k].kind == "text" for k in range(low, high))

    def _number(self, at):
        token = self.tokens[at]
        if (text := changed_number(token.text)) is None:
            return
        before = self.tokens[at - 1]
        # What "x < 5" became already: "x <= 5" is "x < 6".
        last = self.tokens[at + 1].text in (")", ";", "&&", "||", "?", ",")
        if not (before.text in ("<", ">=") and last and self.is_operator(at - 1)):
            self._value(at, at + 1, text, "constant")
        if before.text == "-" and token.tight and not self.is_operator(at - 1):
            self._value(at - 1, at + 1, token.text, "without its sign")

    # --- all of them

    def _unique(self):
        seen, kept = set(), []
        for mutant in self.mutants:
            key = (mutant.start, mutant.end, mutant.text, mutant.how, mutant.after)
            if mutant.text is None or key in seen or mutant.how == "value" and self._flat(mutant.start, mutant.end) in (None, mutant.text):
                continue
            seen.add(key)
            kept.append(mutant)
        kept.sort(key=lambda mutant: (mutant.start, -mutant.end))
        self.mutants = kept

    def line(self, offset):
        return self.text.count("\n", 0, offset) + 1

    def line_text(self, offset):
        begin = self.text.rfind("\n", 0, offset) + 1
        return self.text[begin:self.text.find("\n", offset)].strip()

    def change(self, mutant):
        """What a mutant does, as a text for people."""
        if mutant.how == "slot":
            return f"swapped: {self._flat(mutant.start, mutant.end)} | {mutant.text}"
        if mutant.how == "statement":
            return f"left out: {self._flat(mutant.start, mutant.end)}"
        text = mutant.text.removeprefix(AS_BOOL)[1:-1] if mutant.text.startswith(AS_BOOL) else mutant.text
        return f"{self._flat(mutant.start, mutant.end)} -> {text}"


AS_BOOL = "static_cast<bool>"


def as_bool(text):
    """Else the original, beside an operand that only can become one, would become what that is: a filled optional."""
    return f"{AS_BOOL}({text})"


def changed_number(text):
    match = re.fullmatch(r"(0[xX])([0-9a-fA-F']+)([uUlLzZ]*)|(\d[\d']*)(?![\d.eE'])(\w*)|(\d+\.\d+|\d+\.?\d*[eE][+-]?\d+)(\w*)", text)
    if not match:
        return None
    if match[1]:
        return f"0x{int(match[2].replace(chr(39), ''), 16) + 1:X}{match[3]}"
    if match[4]:
        plain = match[4].replace("'", "")
        if plain.startswith("0") and len(plain) > 1:
            return f"0{int(plain, 8) + 1:o}{match[5]}"
        value = int(plain)
        return f"{value + (1 if value < 10000 else value // 10)}{match[5]}"
    return f"{float(match[6]) + 1}{match[7]}"


ESCAPES = {"\\n": "\\t", "\\r": "\\n", "\\t": "\\n", "\\0": "\\1", "\\\\": "/", "\\'": "x", '\\"': "'"}


def changed_char(text):
    inner = text[1:-1]
    if inner.startswith("\\"):
        return f"'{ESCAPES.get(inner, 'x')}'"
    return f"'{next_char(inner)}'"


def next_char(char):
    if char in "zZ9":
        return chr(ord(char) - 1)
    if char.isascii() and char.isalnum():
        return chr(ord(char) + 1)
    return "_" if char != "_" else "-"


def changed_text(text):
    """As long as before, the same conversions of printf."""
    match = re.fullmatch(r'(\w*")(.*)("\w*)', text, re.DOTALL)
    if not match or text.startswith("R"):
        return None
    parts = re.findall(r"%[-+ #0]*\d*(?:\.\d+)?(?:hh|h|ll|l|z|j|t)?[a-zA-Z%]|\\x[0-9a-fA-F]+|\\[0-7]{1,3}|\\.|.", match[2], re.DOTALL)
    if not parts:
        return match[1] + "x" + match[3]
    best = next((k for k, part in enumerate(parts) if len(part) == 1 and part.isalnum()), None)
    if best is None:
        best = next((k for k, part in enumerate(parts) if len(part) == 1), None)
    if best is None:
        best = next((k for k, part in enumerate(parts) if part in ESCAPES), None)
    if best is None:
        return None
    parts[best] = ESCAPES.get(parts[best]) or next_char(parts[best])
    return match[1] + "".join(parts) + match[3]


class Rewritten:
    """A source in which all of the given mutants stand; `places` tells where, for the compiler's messages."""

    INCLUDE = '#include "tools/mutation/mutant.h"\n'

    def __init__(self, source, mutants):
        self.source = source
        self.out = [self.INCLUDE]
        self.length = len(self.INCLUDE)
        self.places = []  # (start, end, ids): in the rewritten text
        self.statements = {}
        edits = {}
        for mutant in mutants:
            key = (mutant.start, mutant.end, "value" if mutant.how == "value" else "statement")
            edits.setdefault(key, []).append(mutant)
            if mutant.how == "slot":
                edits.setdefault((mutant.second[0], mutant.second[1], "statement"), []).append(mutant)
        for start in {mutant.group for mutant in mutants if mutant.group is not None}:
            edits[(start, source.constants[start][0], "plain")] = []
        ordered = sorted(edits.items(), key=lambda item: (item[0][0], -item[0][1], item[0][2] == "value"))
        self.dropped = set()
        self._write(0, len(source.text), ordered)
        self.text = "".join(self.out)
        self._lines = [0] + [match.end() for match in re.finditer("\n", self.text)]

    def _put(self, text):
        self.out.append(text)
        self.length += len(text)

    def _write(self, low, high, edits):
        at = 0
        while at < len(edits):
            (start, end, how), mutants = edits[at]
            inner = at + 1
            while inner < len(edits) and edits[inner][0][0] < end:
                inner += 1
            within = [edit for edit in edits[at + 1:inner] if edit[0][1] <= end]
            for edit in edits[at + 1:inner]:
                if edit[0][1] > end:  # crosses
                    self.dropped.update(mutant.id for mutant in edit[1])
            self._put(self.source.text[low:start])
            self._edit(start, end, how, mutants, within)
            low = end
            at = inner
        self._put(self.source.text[low:high])

    def _edit(self, start, end, how, mutants, within):
        begin = self.length
        if how == "plain":
            self._put(self.source.constants[start][1])
            return
        if how == "value":
            self._put("(")
            for mutant in mutants:
                place = self.length
                self._put(f"tav_mutant({mutant.id}) ? ({mutant.text}) : ")
                self.places.append((place, self.length, [mutant.id]))
            self._put("(")
            self._write(start, end, within)
            self._put("))")
        else:
            for mutant in mutants:
                place = self.length
                if mutant.how == "slot":
                    first = mutant.start == start
                    self._put(f"if (tav_mutant({mutant.id})) {{ {mutant.text if first else self.source._flat(mutant.start, mutant.end)} }} else ")
                else:
                    self._put(f"if (tav_mutant({mutant.id})) {{}} else ")
                self.places.append((place, self.length, [mutant.id]))
            self._put("{ ")
            self._write(start, end, within)
            self._put(" }")
        self.places.append((begin, self.length, [mutant.id for mutant in mutants]))

    def at(self, line, column):
        """The ids of the mutants to blame for a message there: of the smallest place around it."""
        offset = self._lines[min(line, len(self._lines)) - 1] + column - 1
        around = [place for place in self.places if place[0] <= offset < place[1]]
        return min(around, key=lambda place: place[1] - place[0])[2] if around else []

    def on_line(self, line):
        begin = self._lines[min(line, len(self._lines)) - 1]
        end = self._lines[line] if line < len(self._lines) else len(self.text)
        return sorted({id for place in self.places if place[0] < end and place[1] > begin for id in place[2]})

    def text_of_line(self, line):
        begin = self._lines[min(line, len(self._lines)) - 1]
        end = self._lines[line] if line < len(self._lines) else len(self.text)
        return self.text[begin:end]
