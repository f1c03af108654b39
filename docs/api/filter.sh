#!/bin/sh
# Doxygen input filter: the headers' plain // comments are their documentation. A comment block on
# its own lines documents what follows it; a comment after a declaration on the same line documents
# that declaration.
exec sed -E \
  -e 's#^([[:space:]]*)//([^/!]|$)#\1///\2#' \
  -e 's#([;,{])([[:space:]]+)//([^/!]|$)#\1\2///<\3#' \
  "$1"
