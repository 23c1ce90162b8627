(* What is said in a room, and the gateway's answer. *)
Say:object(
    __class__(chat.Say)
    __code__(3001)
    [1]room:string()
    [2]text:string()
    [3]mood:enum{Mood}?(
        good(0)
        bad(1)
    )
)
Said:object(
    __class__(chat.Said)
    __super__(chat.Say)
    __code__(3002)
)
