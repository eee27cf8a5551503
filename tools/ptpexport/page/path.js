// Paths of a state, as changes name them: ptp/status.portDS[Ethernet1,100].portState

/// Splits what follows a root's name into names and keys: `.portDS["a]b"].x` gives
/// ["portDS", "a]b", "x"]. A key in quotes has its quotes and backslashes removed.
export function partsOf(path) {
   const parts = [];
   let at = 0;
   while (at < path.length) {
      if (path[at] === '.') {
         const end = nextOf(path, at + 1, '.[');
         parts.push(path.slice(at + 1, end));
         at = end;
      } else if (path[at] === '[') {
         const end = endOfKey(path, at + 1);
         parts.push(keyText(path.slice(at + 1, end)));
         at = end + 1;
      } else {
         throw new Error(`not a path: ${path}`);
      }
   }
   return parts;
}

function nextOf(text, from, characters) {
   let at = from;
   while (at < text.length && !characters.includes(text[at])) {
      ++at;
   }
   return at;
}

/// The bracket that ends a key: those inside quotes, and pairs inside the key, belong to it.
function endOfKey(text, from) {
   let depth = 0;
   for (let at = from; at < text.length; ++at) {
      if (text[at] === '"') {
         for (++at; at < text.length && text[at] !== '"'; ++at) {
            at += text[at] === '\\' ? 1 : 0;
         }
      } else if (text[at] === '[') {
         ++depth;
      } else if (text[at] === ']' && depth-- === 0) {
         return at;
      }
   }
   return text.length;
}

function keyText(key) {
   return /^".*"$/s.test(key) ? key.slice(1, -1).replace(/\\(.)/gs, '$1') : key;
}

/// The path as a request's: each segment is escaped, slashes stay.
export function inUrl(path) {
   return path.split('/').map(encodeURIComponent).join('/');
}
