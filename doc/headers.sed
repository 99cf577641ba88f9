# "Source:" and "Runs:" close an operation's comment; in the pages they get a heading of their own.
s,^( *///) (Source|Runs): ,\1 @\2_ ,
